/* A host built against the installed library: finds the message files of its prefix
 * and formats a text. */
#include <qv/qvcommon.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
    char *text = NULL;
    const char *kind = Gloss_L(100); /* only the installed glossary.gls knows it */
    Asprintf_L(&text, "%s|%05d", kind, 42);
    int ok = text != NULL && strcmp(text, "Build|00042") == 0;
    printf("%s\n", text ? text : "<null>");
    free(text);
    UnloadGlossaries_L();
    Free_Alloc_Ptrs_L();
    return ok ? 0 : 1;
}
