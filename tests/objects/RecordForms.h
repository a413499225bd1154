// RecordForms.h - writing and reading records in each of the three framings a document gives
// them, for the value-object and dictionary tests, and records that our writers would refuse.
//
// No object table: long-form chunks, 4-byte counts, compatible floats. A table without 64-bit
// mode: the same encodings, records entered in the table. A table with it: byte-form chunks,
// compact counts, raw floats and doubles.
#pragma once

#include "TestSupport.h"
#include "objects/GSObjectRef.h"

#include <gtest/gtest.h>

#include <functional>
#include <utility>

namespace record_forms {

using testing_support::Bytes;
using testing_support::MemoryFile;

enum class Form { kPlain, kLongTable, kByteTable };
inline constexpr Form kForms[] = {Form::kPlain, Form::kLongTable, Form::kByteTable};

inline const char* formName(Form form) {
    return form == Form::kPlain ? "no table" : form == Form::kLongTable ? "long form" : "byte form";
}

// Writes with `write` inside the form's framing and returns the bytes.
inline Bytes writeIn(Form form, const std::function<short(GSFile*)>& write) {
    MemoryFile m;
    if (form != Form::kPlain) {
        EXPECT_EQ(m.file.startObjectMergingWrite(form == Form::kByteTable), 0);
    }
    EXPECT_EQ(write(&m.file), 0) << formName(form);
    if (form != Form::kPlain) m.file.stopObjectMergingWrite();
    return m.bytes();
}

// Reads with `read` inside the form's framing; after a successful read, checks that the whole
// input was consumed.
inline short readIn(Form form, const Bytes& bytes, const std::function<short(GSFile*)>& read) {
    MemoryFile r(bytes);
    if (form != Form::kPlain) {
        EXPECT_EQ(r.file.startObjectMergingRead(), 0);
    }
    short status = read(&r.file);
    if (form != Form::kPlain) r.file.stopObjectMergingRead();
    if (status == 0) {
        EXPECT_EQ(r.file.tell(), static_cast<long>(bytes.size())) << formName(form);
    }
    return status;
}

// Reads one record; the object (held) or null, and the status in *status.
inline GSObjectRef<GSObject> readRecordIn(Form form, const Bytes& bytes, short* status) {
    GSObjectRef<GSObject> back;
    *status = readIn(form, bytes, [&](GSFile* f) {
        GSObject* o = nullptr;
        short s = f->readObject(&o);
        back.reset(o);
        return s;
    });
    return back;
}

// Writes `object` as a record and reads it back; null unless an object of the same class came
// back without failure.
template <class T> GSObjectRef<T> roundTrip(const T& object, Form form) {
    Bytes bytes = writeIn(form, [&](GSFile* f) { return f->writeObject(&object); });
    short status;
    GSObjectRef<GSObject> back = readRecordIn(form, bytes, &status);
    EXPECT_EQ(status, 0) << formName(form);
    bool same = status == 0 && back && back->getRuntimeClass() == object.getRuntimeClass();
    return GSObjectRef<T>(same ? static_cast<T*>(back.get()) : nullptr);
}

// A record that names `type` but whose body is whatever `body` writes: for files our writers do
// not make (bodies in other versions, nesting past the writer's own limit).
class RawRecord : public GSObject {
public:
    using Body = std::function<short(GSFile*)>;
    RawRecord(const GSRuntimeClass& type, Body body) : type(&type), body(std::move(body)) {}
    const GSRuntimeClass* getRuntimeClass() const override { return type; }
    short write(GSFile* file) const override { return body(file); }

private:
    const GSRuntimeClass* type;
    Body body;
};

} // namespace record_forms
