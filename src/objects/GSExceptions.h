// GSExceptions.h - the framework's two exception classes.
//
// Exceptions report misuse only, never bad data: an index outside an array or table
// (bad_index) and object merging started twice or stopped when inactive (bad_file). Both are
// thrown by value. The framework's own names live in namespace std, as its callers expect.
#pragma once

#include <exception>

namespace std {

class bad_index : public exception {
public:
    const char* what() const noexcept override { return "Bad Index"; }
};

class bad_file : public exception {
public:
    const char* what() const noexcept override { return "Bad File"; }
};

} // namespace std
