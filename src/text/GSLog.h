// GSLog.h - the framework's logging entry point.
//
// Takes a printf-style message and discards it: logging is switched off in this system (a
// thumbnailer has nobody to read a log, and file contents must not reach one). Calls are kept
// in the code so that the places worth logging stay marked, and the format attribute keeps
// their arguments checked.
#pragma once

void GSLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
