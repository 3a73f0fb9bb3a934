// reaches_up.hpp - a ground-floor header that includes a higher floor, so that the floor
// check can be seen to fail (tests/CMakeLists.txt, include_floors_catches_violations).
#include "messages/message.hpp"
#include "core/raise.hpp"
