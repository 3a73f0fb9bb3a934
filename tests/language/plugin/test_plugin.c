/* test_plugin.c - a small library that the language suite loads with LoadLib: a host
 * function table with one form-A and one form-B function, reached by GetFuncAddr. It uses
 * nothing of the library but the records of its headers. */
#include <qv/builtin.h>

#define PLUGIN_API __attribute__((visibility("default")))

/* Twice( integer ): the integer doubled; NULL for an omitted or NULL argument. */
static void twice(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *x) {
    result->descriptor.type = QV_TYPE_INTEGER;
    if (frame->mode != QV_MODE_EVALUATE) return;
    result->is_null = x == NULL || x->is_null;
    if (!result->is_null) result->payload.integer = 2 * x->payload.integer;
}

/* CountGiven( value ... ): how many arguments the call gave. */
static void count_given(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    result->descriptor.type = QV_TYPE_INTEGER;
    if (frame->mode != QV_MODE_EVALUATE) return;
    result->is_null = 0;
    result->payload.integer = frame->argument_count;
}

static const ExpFunction plugin_functions[] = {
    {.name = "Twice",
     .usage = "Twice( integer )",
     .number = 9001,
     .handler = QV_EXP_HANDLER(twice),
     .category = QV_CATEGORY_NUMERIC,
     .max_args = 1,
     .min_args = 1,
     .result_type = QV_TYPE_INTEGER,
     .arg_types = {QV_TYPE_INTEGER}},
    {.name = "CountGiven",
     .usage = "CountGiven( value [, value ... ] )",
     .number = 9002,
     .handler = QV_EXP_HANDLER(count_given),
     .category = QV_CATEGORY_MISCELLANEOUS,
     .max_args = QV_UNLIMITED_ARGUMENTS,
     .min_args = 0,
     .result_type = QV_TYPE_INTEGER,
     .arg_types = {QV_MASK_ANY},
     .repeat = 1},
    {0}, /* the terminator */
};

PLUGIN_API const ExpFunction *plugin_function_table(void) {
    return plugin_functions;
}
