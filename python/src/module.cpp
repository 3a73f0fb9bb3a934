// module.cpp - the extension module _qvcommon, which the package qvcommon wraps: the library
// is initialised once per process when the module is first imported (message context,
// feedback to the Python logger, variables, the function registry).
#include "qvpy.hpp"

PYBIND11_MODULE(_qvcommon, module) {
    module.doc() = "The qvcommon library's expression language (use the package qvcommon).";
    qvpy::initialise_conversions();
    qvpy::initialise_library();
    qvpy::register_expression(module);
    qvpy::register_script(module);
    qvpy::register_derive(module);
}
