// date_literal_hook.cpp - installs the date-literal recogniser (IsInternalDate_L) into the
// data types at load, so that WhichDataType_L types a date literal as DATE with the
// recogniser's flag; the data types sit on a lower floor and cannot call it themselves.
#include "dates/date.hpp"
#include "types/datatype.hpp"

namespace {

[[maybe_unused]] const bool installed =
    (qv::install_date_literal_recognizer(qv::recognise_date_literal), true);

} // namespace
