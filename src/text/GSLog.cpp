// GSLog.cpp - the logging entry point, which discards its message.
#include "text/GSLog.h"

void GSLog(const char* /*format*/, ...) {}
