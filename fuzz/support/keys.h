// The key operations of all four index families, driven by the input.
#pragma once

#include "support/tables.h"

namespace fuzz {

// How a family's keys look to its caller.
struct KeyShape {
    size_t length = 0;    // bytes that the contract gives a key
    bool text = false;    // followed by a terminator where the library gives one
    bool number = false;  // 8 bytes of a double, or what the family makes of one
};

// A key from the input: one that the seeds hold, or any bytes. It has the size
// that the contract tells, and not a byte more.
struct Key {
    Key(FuzzInput& input, const KeyShape& shape) : bytes(shape.length + (shape.text ? 1 : 0), 0) {
        uint8_t how = input.Byte();
        char known[16];
        snprintf(known, sizeof known, "KEY%05d", how & 0x80 ? input.Word() : input.Byte() * 3);
        std::string value = how & 1 ? input.Bytes(how >> 2 & 31) : std::string(known);
        if (shape.text) {
            memset(bytes.data(), ' ', shape.length);
            memcpy(bytes.text(), value.data(), std::min(value.size(), shape.length));
            if (how & 2) bytes.text()[std::min(value.size(), shape.length)] = 0;
        } else {
            bytes.Set(value);
        }
    }
    Exactly bytes;
};

// `Calls` has the family's functions under plain names: Top, Bottom, Next,
// Previous, Current, Find, Add, Delete, and Make(data, handle, key).
template <class Calls>
void OperateKeys(Session& session, FuzzInput& input, typename Calls::Handle handle, const KeyShape& shape,
                 unsigned operation) {
    Key key(input, shape);
    uint32_t record = input.Number();
    void* bytes = key.bytes.data();
    switch (operation % 10) {
        case 0: session.Do([&] { return Calls::Top(handle, bytes, &record); }); break;
        case 1: session.Do([&] { return Calls::Bottom(handle, bytes, &record); }); break;
        case 2:
        case 3: {
            unsigned steps = 1 + input.Pick(8);
            for (unsigned i = 0; i < steps; i++)
                session.Do([&] {
                    return operation % 10 == 2 ? Calls::Next(handle, bytes, &record)
                                               : Calls::Previous(handle, bytes, &record);
                });
            break;
        }
        case 4: session.Do([&] { return Calls::Current(handle, bytes, &record); }); break;
        case 5: {
            auto mode = static_cast<int16_t>(input.Pick(8));
            session.Do([&] { return Calls::Find(handle, bytes, &record, mode); });
            break;
        }
        case 6:
        case 7: {
            // So many that pages split.
            unsigned count = operation & 0x80 ? 1 + input.Pick(64) : 1;
            for (unsigned i = 0; i < count; i++)
                session.Do([&] { return Calls::Add(handle, bytes, record + i); });
            break;
        }
        case 8: {
            unsigned count = operation & 0x80 ? 1 + input.Pick(64) : 1;
            for (unsigned i = 0; i < count; i++)
                session.Do([&] { return Calls::Delete(handle, bytes, record + i); });
            break;
        }
        case 9: {
            // The first key and all behind it go, one after the other.
            unsigned count = 1 + input.Pick(64);
            for (unsigned i = 0; i < count; i++) {
                if (session.Do([&] { return Calls::Top(handle, bytes, &record); }) != 0) break;
                if (session.Do([&] { return Calls::Delete(handle, bytes, record); }) < 0) break;
            }
            break;
        }
    }
}

// Goes through an index from its first key to its last; more than `most` keys
// are a circle.
template <class Calls>
void WalkKeys(Session& session, typename Calls::Handle handle, const KeyShape& shape, unsigned most) {
    Exactly key(shape.length + (shape.text ? 1 : 0));
    uint32_t record;
    int32_t code = session.Do([&] { return Calls::Top(handle, key.data(), &record); });
    for (unsigned i = 0; i < most && code == 0; i++)
        code = session.Do([&] { return Calls::Next(handle, key.data(), &record); });
}

struct NdxCalls {
    using Handle = int16_t;
    static constexpr auto Open = ZBDNOPENX;
    static constexpr auto Close = ZBDNCLOSE;
    static constexpr auto Refresh = ZBDNHGET;
    static constexpr auto Expression = ZBDNEXPR;
    static constexpr size_t ExpressionRoom = 221;
    static constexpr auto Top = ZBDNKTOP;
    static constexpr auto Bottom = ZBDNKBOT;
    static constexpr auto Next = ZBDNKNEXT;
    static constexpr auto Previous = ZBDNKPREV;
    static constexpr auto Current = ZBDNKCUR;
    static constexpr auto Find = ZBDNKFIND;
    static constexpr auto Add = ZBDNKADD;
    static constexpr auto Delete = ZBDNKDEL;
    static constexpr auto Make = ZBDNKMAKE;
    static int32_t Shape(int16_t index, KeyShape* shape) {
        ZbNdxInfo info{};
        int32_t code = ZBDNINFO(index, &info);
        bool number = info.keyType == 'N';
        *shape = {number ? size_t{8} : info.keyLength, !number, number};
        return code;
    }
    static int32_t Build(int16_t data, const char* name, uint16_t type, char* expression, int16_t length,
                         int16_t) {
        return ZBDNINDEX(data, name, static_cast<int16_t>(type), expression, length);
    }
    static int32_t Create(const char* name, uint16_t type, char* expression, int16_t length, int16_t) {
        return ZBDNCREATE(name, static_cast<int16_t>(type), expression, length);
    }
};

struct NtxCalls {
    using Handle = int16_t;
    static constexpr auto Open = ZBDCOPENX;
    static constexpr auto Close = ZBDCCLOSE;
    static constexpr auto Refresh = ZBDCHGET;
    static constexpr auto Expression = ZBDCEXPR;
    static constexpr size_t ExpressionRoom = 256;
    static constexpr auto Top = ZBDCKTOP;
    static constexpr auto Bottom = ZBDCKBOT;
    static constexpr auto Next = ZBDCKNEXT;
    static constexpr auto Previous = ZBDCKPREV;
    static constexpr auto Current = ZBDCKCUR;
    static constexpr auto Find = ZBDCKFIND;
    static constexpr auto Add = ZBDCKADD;
    static constexpr auto Delete = ZBDCKDEL;
    static constexpr auto Make = ZBDCKMAKE;
    static int32_t Shape(int16_t index, KeyShape* shape) {
        ZbNtxInfo info{};
        int32_t code = ZBDCINFO(index, &info);
        *shape = {info.keyLength, true, false};
        return code;
    }
    static int32_t Build(int16_t data, const char* name, uint16_t type, char* expression, int16_t length,
                         int16_t decimals) {
        return ZBDCINDEX(data, name, static_cast<int16_t>(type), expression, length, decimals);
    }
    static int32_t Create(const char* name, uint16_t type, char* expression, int16_t length,
                          int16_t decimals) {
        return ZBDCCREATE(name, static_cast<int16_t>(type), expression, length, decimals);
    }
};

struct IdxCalls {
    using Handle = int16_t;
    static constexpr auto Open = ZBDIOPENX;
    static constexpr auto Close = ZBDICLOSE;
    static constexpr auto Refresh = ZBDIHGET;
    static constexpr auto Expression = ZBDIEXPR;
    static constexpr size_t ExpressionRoom = 221;
    static constexpr auto Top = ZBDIKTOP;
    static constexpr auto Bottom = ZBDIKBOT;
    static constexpr auto Next = ZBDIKNEXT;
    static constexpr auto Previous = ZBDIKPREV;
    static constexpr auto Current = ZBDIKCUR;
    static constexpr auto Find = ZBDIKFIND;
    static constexpr auto Add = ZBDIKADD;
    static constexpr auto Delete = ZBDIKDEL;
    static constexpr auto Make = ZBDIKMAKE;
    static int32_t Shape(int16_t index, KeyShape* shape) {
        ZbIdxInfo info{};
        int32_t code = ZBDIINFO(index, &info);
        *shape = {info.keyLength, true, false};
        return code;
    }
    static int32_t Build(int16_t data, const char* name, uint16_t type, char* expression, int16_t length,
                         int16_t) {
        return ZBDIINDEX(data, name, type, expression, length);
    }
    static int32_t Create(const char* name, uint16_t type, char* expression, int16_t length, int16_t) {
        return ZBDICREATE(name, type, expression, length);
    }
};

struct MdxCalls {
    using Handle = int32_t;
    static constexpr auto Refresh = ZBDMTHGET;
    static constexpr auto Expression = ZBDMTEXPR;
    static constexpr size_t ExpressionRoom = 221;
    static constexpr auto Top = ZBDMKTOP;
    static constexpr auto Bottom = ZBDMKBOT;
    static constexpr auto Next = ZBDMKNEXT;
    static constexpr auto Previous = ZBDMKPREV;
    static constexpr auto Current = ZBDMKCUR;
    static constexpr auto Find = ZBDMKFIND;
    static constexpr auto Add = ZBDMKADD;
    static constexpr auto Delete = ZBDMKDEL;
    static constexpr auto Make = ZBDMKMAKE;
    static int32_t Shape(int32_t tag, KeyShape* shape) {
        ZbMdxTagInfo info{};
        int32_t code = ZBDMTINFO(tag, &info);
        switch (info.keyType) {
            case 'D': *shape = {8, false, true}; break;
            case 'N': *shape = {12, false, true}; break;
            default: *shape = {static_cast<size_t>(info.keyLength > 0 ? info.keyLength : 0), true, false};
        }
        return code;
    }
};

// How the seeds of a family's index files are made.
struct IndexSeed {
    uint16_t type;
    int16_t length;
    int16_t decimals;
    int keys;
    int deleted;
};

template <class Calls>
std::string IndexFile(const IndexSeed& seed) {
    return MakeFile("A.IX", [&](Session&) {
        Exactly expression(std::string("UPPER"));
        expression.Set(std::string("NAME\0", 5));
        Calls::Create("A.IX", seed.type, expression.text(), seed.length, seed.decimals);
        uint16_t opened;
        Calls::Open(&opened, "A.IX", 0);
        auto handle = static_cast<int16_t>(opened);
        for (int i = 0; i < seed.keys + seed.deleted; i++) {
            int n = i * 3 % (seed.keys + seed.deleted);
            char key[128];
            snprintf(key, sizeof key, "KEY%05d%-110s", n * 3 % 1000, "");
            double number = n;
            void* bytes = key;
            if ((seed.type & 0x5F) != 'C') bytes = &number;
            if (seed.decimals >= 0 && (seed.type & 0x5F) == 'N') {
                snprintf(key, sizeof key, "%0*d", seed.length, n);
                bytes = key;
            }
            if (i < seed.keys)
                Calls::Add(handle, bytes, static_cast<uint32_t>(n + 1));
            else if (seed.keys)
                Calls::Delete(handle, bytes, static_cast<uint32_t>(n + 1));
            ZBESCODE(0);
        }
        Calls::Close(handle);
    });
}

// One index file of a family that keeps one index a file.
template <class Calls>
void FuzzIndex(FuzzInput& input, const std::string* seeds, size_t count) {
    uint8_t mode = input.Byte();
    std::string file = StartFile(input, seeds, count);
    Session session;
    session.platform.Put("A.IX", file);
    uint16_t opened;
    auto open = [&] {
        return session.Do([&] {
            return Calls::Open(&opened, "A.IX", static_cast<uint16_t>((mode & 0xF) << 8 | mode >> 4));
        });
    };
    if (open() < 0) return;
    auto handle = static_cast<int16_t>(opened);
    KeyShape shape;
    session.Do([&] { return Calls::Shape(handle, &shape); });
    for (int i = 0; i < 48 && !input.Empty(); i++) {
        uint8_t operation = input.Byte();
        switch (operation % 16) {
            case 10: {
                Exactly text(Calls::ExpressionRoom);
                session.Do([&] { return Calls::Expression(handle, text.text()); });
                session.Do([&] { return Calls::Refresh(handle); });
                break;
            }
            case 11:
                if constexpr (std::is_same_v<Calls, IdxCalls>)
                    session.Do([&] { return ZBDIKTYPE(handle, "CDNLX"[input.Pick(5)]); });
                break;
            case 12:  // another program writes to the file
                if (std::string* bytes = session.platform.Find("A.IX")) Damage(input, *bytes);
                break;
            case 13:
                session.Do([&] { return Calls::Close(handle); });
                if (open() < 0) return;
                handle = static_cast<int16_t>(opened);
                session.Do([&] { return Calls::Shape(handle, &shape); });
                break;
            default: OperateKeys<Calls>(session, input, handle, shape, operation); break;
        }
    }
    session.Do([&] { return Calls::Close(handle); });
}

}  // namespace fuzz
