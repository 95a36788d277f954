// NTX files for tests: an index driven by names that say what is done, and pages
// put together byte by byte, so that no test of the bytes depends on the library.
#pragma once

#include <cstring>
#include <vector>

#include "support/dbf.h"
#include "support/support.h"

namespace test {

// An index that a test works on, and the buffers of its caller.
class NtxIndex {
  public:
    explicit NtxIndex(std::string name = "t.ntx") : file(std::move(name)) {}

    int Create(int type, int length, int decimals = 0, std::string expression = "NAME") {
        return ZBDCCREATE(file.c_str(), static_cast<int16_t>(type), expression.data(),
                          static_cast<int16_t>(length), static_cast<int16_t>(decimals));
    }
    int Open(int mode = 0) {
        uint16_t opened = 77;
        int code = ZBDCOPENX(&opened, file.c_str(), static_cast<uint16_t>(mode));
        handle = static_cast<int16_t>(opened);
        return code;
    }
    void Make(int type, int length, int decimals = 0) {
        ASSERT_EQ(Create(type, length, decimals), 0);
        ASSERT_EQ(Open(), 0);
    }
    int Close() { return ZBDCCLOSE(handle); }

    int Add(const Bytes& key, uint32_t number) { return ZBDCKADD(handle, Padded(key).data(), number); }
    int Delete(const Bytes& key, uint32_t number) { return ZBDCKDEL(handle, Padded(key).data(), number); }
    int Find(const Bytes& wanted, int mode = 0, uint32_t number = 0) {
        memcpy(buffer, Padded(wanted).data(), 104);
        record = number;
        return ZBDCKFIND(handle, buffer, &record, static_cast<int16_t>(mode));
    }
    int Top() { return ZBDCKTOP(handle, buffer, &record); }
    int Bottom() { return ZBDCKBOT(handle, buffer, &record); }
    int Next() { return ZBDCKNEXT(handle, buffer, &record); }
    int Previous() { return ZBDCKPREV(handle, buffer, &record); }
    int Current() { return ZBDCKCUR(handle, buffer, &record); }

    // What the last call left in the caller's buffers.
    Bytes Key() const { return buffer; }
    using Entry = std::pair<Bytes, uint32_t>;
    Entry At() const { return {buffer, record}; }

    // All entries, by a walk in either direction. (A walk through an index that has
    // the same entry twice doesn't end.)
    std::vector<uint32_t> Records(bool forward = true) {
        std::vector<uint32_t> records;
        int code = forward ? Top() : Bottom();
        for (; code == 0 && records.size() < 100000; code = forward ? Next() : Previous())
            records.push_back(record);
        return records;
    }

    std::string file;
    int16_t handle = -1;
    char buffer[112] = {};
    uint32_t record = 0;

  private:
    static Bytes Padded(const Bytes& key) { return key + Fill(104 - key.size()); }
};

// Pages and headers for keys of one length.
struct NtxBytes {
    int keyLength;

    int maxKeys() const { return (1020 / (keyLength + 10) - 1) & ~1; }
    int slotAt(int slot) const { return 2 * maxKeys() + 4 + slot * (keyLength + 8); }

    Bytes Header(int version, int64_t root, int64_t freeHead, const Bytes& expression, int unique = 0,
                 int decimals = 0) const {
        return Le16(6) + Le16(version) + Le32(root) + Le32(freeHead) + Le16(keyLength + 8) + Le16(keyLength) +
               Le16(decimals) + Le16(maxKeys()) + Le16(maxKeys() / 2) + expression +
               Fill(256 - expression.size()) + Le16(unique) + Fill(744);
    }

    struct Item {
        int64_t child;
        int64_t record;
        Bytes key;
    };
    // The table as slot numbers, and the bytes of the slots from 0 on.
    Bytes Page(int count, const std::vector<int>& table, const std::vector<Item>& slots) const {
        Bytes page = Le16(count);
        for (int slot : table) page += Le16(slotAt(slot));
        for (const Item& item : slots) {
            Bytes key = item.key.empty() ? Fill(static_cast<size_t>(keyLength)) : item.key;
            page += Le32(item.child) + Le32(item.record) + key;
        }
        return page + Fill(1024 - page.size());
    }
    std::vector<int> FreshTable() const {
        std::vector<int> table;
        for (int i = 0; i <= maxKeys(); i++) table.push_back(i);
        return table;
    }
};

// Keys that sort as their numbers do: "07", "08" and so on, filled with blanks.
inline Bytes NumberedKey(int number, size_t length = 100) {
    Bytes key = std::to_string(number);
    key = Fill(number < 10 ? 1 : 0, '0') + key;
    return key + Fill(length - key.size(), ' ');
}

}  // namespace test
