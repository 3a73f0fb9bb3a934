/* mystery.h - a public header missing from the floor check's table. */
#include "except.h"
