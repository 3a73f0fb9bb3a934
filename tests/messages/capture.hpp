// capture.hpp - the shared test helpers moved to tests/support/capture.hpp, which every suite
// reaches as "capture.hpp"; this forwarding header serves suites that still name the old place.
#pragma once

#include "../support/capture.hpp"
