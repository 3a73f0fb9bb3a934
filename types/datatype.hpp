// datatype.hpp - the hook through which the date module lets literal typing recognise
// date literals (WhichDataType_L's fourth step).
#pragma once

#include <cstdint>

namespace qv {

// True when `text` is a date literal; *flag then receives the recogniser's flag, which the
// lowest byte of the DATE descriptor's extra field carries.
using DateLiteralRecognizer = bool (*)(const char *text, uint8_t *flag);

// Installs the recogniser (the date module does at initialisation); with none installed,
// no text is a date literal. A null recognizer uninstalls.
void install_date_literal_recognizer(DateLiteralRecognizer recognizer);

} // namespace qv
