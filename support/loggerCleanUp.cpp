// In a file of its own, so that a program that defines the constant itself never takes this one out of the library.
#include "support/logger.h"

const bool LOGGER_REMOVES_OLD_FILES = true;
