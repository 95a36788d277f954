// Data files put together byte by byte, so that no test of reading them depends
// on the library's writing.
#pragma once

#include "support/support.h"

namespace test {

inline Bytes Le16(int value) { return {static_cast<char>(value), static_cast<char>(value >> 8)}; }
inline Bytes Le32(int64_t value) {
    return Le16(static_cast<int>(value & 0xFFFF)) + Le16(static_cast<int>(value >> 16 & 0xFFFF));
}

// The 32 bytes of a header: last touched on the 21st of the 11th month.
inline Bytes DbfHeader(int version, int64_t records, int headerLength, int recordLength) {
    return Bytes(1, static_cast<char>(version)) + Hex("15 0B 00") + Le32(records) + Le16(headerLength) +
           Le16(recordLength) + Fill(20);
}

inline Bytes DbfField(const Bytes& name, char type, int length, int decimals = 0) {
    Bytes bytes = name + Fill(11 - name.size()) + type + Fill(4);
    bytes += {static_cast<char>(length), static_cast<char>(decimals)};
    return bytes + Fill(14);
}

// A whole file: the header, the descriptors, the terminator, the records and an
// end mark.
inline Bytes Dbf(int version, int recordLength, const std::vector<Bytes>& fields,
                 const std::vector<Bytes>& records) {
    int headerLength = 32 * static_cast<int>(fields.size()) + 33;
    Bytes bytes = DbfHeader(version, static_cast<int64_t>(records.size()), headerLength, recordLength);
    for (auto& field : fields) bytes += field;
    bytes += '\x0D';
    for (auto& record : records) bytes += record;
    return bytes + '\x1A';
}

// NAME C(5) and BORN D: 97 bytes before the records, records of 14 bytes.
inline Bytes People(const std::vector<Bytes>& records) {
    return Dbf(3, 14, {DbfField("NAME", 'C', 5), DbfField("BORN", 'D', 8)}, records);
}

inline const Bytes Anna = " ANNA 19960229";
inline const Bytes Bert = "*BERT 19701231";
inline const Bytes Cleo = " CLEO 20010101";

}  // namespace test
