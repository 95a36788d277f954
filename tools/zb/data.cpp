#include "data.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "failure.h"
#include "files.h"
#include "suggest.h"

namespace tool {
namespace {

constexpr uint16_t kInfoReadOnly = 1;
constexpr uint16_t kConflict = 100;
constexpr int16_t kHeaderLock = 1;
constexpr int16_t kUnlockRecord = 6;
constexpr int16_t kLockRecord = 7;
constexpr uint16_t kPutAppend = 0;
constexpr uint16_t kPutUpdate = 256;
constexpr size_t kDescriptor = 32;

struct DialectLimits {
    int number;
    const char* name;
    size_t fields;
    uint16_t textWidth;
    uint16_t numberWidth;
    uint32_t recordLength;
    bool floats;
};

constexpr DialectLimits kDialects[] = {
    {1, "DialectClassic", 128, 254, 19, 4000, false},
    {2, "DialectDb4", 255, 254, 20, 4000, true},
    {3, "DialectClassicAlt", 128, 254, 19, 4000, false},
    {4, "DialectFox128", 128, 254, 20, 4000, true},
    {5, "DialectWide", 1023, 254, 19, 4000, false},
    {6, "DialectWideChar", 1023, 2048, 19, 8192, false},
    {7, "DialectEofFill", 512, 254, 19, 4000, false},
    {8, "DialectFox255", 255, 254, 20, 4000, true},
    {9, "DialectPaddedHeader", 128, 254, 19, 4000, false},
};

bool Holds(const DialectLimits& limits, const std::vector<Field>& fields) {
    uint32_t length = 1;
    for (const Field& field : fields) {
        length += field.width;
        if (field.type == 'C' && field.width > limits.textWidth) return false;
        if ((field.type == 'N' || field.type == 'F') &&
            (field.width > limits.numberWidth || (!limits.floats && field.decimals > 15)))
            return false;
        if (field.type == 'F' && !limits.floats) return false;
    }
    return fields.size() <= limits.fields && length <= limits.recordLength;
}

uint16_t Le16(const uint8_t* bytes) { return static_cast<uint16_t>(bytes[0] | bytes[1] << 8); }

bool HasProductionByte(const Header& header) { return header.production <= 1; }

// The dialect a table of this version is to be opened as. Reading is the same in
// all that take the version; packing has to write the table anew, and so the
// first one is taken whose limits hold its fields.
int ChooseDialect(const Header& header, const std::vector<Field>& fields, uint64_t fileLength) {
    switch (header.version) {
        case 0x8B: return ZB_DialectDb4;
        case 0xF5: return HasProductionByte(header) ? ZB_DialectFox255 : ZB_DialectFox128;
        case 0x03: {
            uint64_t end = header.length + uint64_t{header.recordLength} * header.records;
            if (header.recordLength > 1 && fileLength == end + header.recordLength) return ZB_DialectEofFill;
            int dialect = FittingDialect(fields);
            if (dialect == ZB_DialectDb4 && !HasProductionByte(header)) return ZB_DialectFox128;
            return dialect;
        }
        case 0x83: {
            int dialect = FittingDialect(fields);
            return dialect == ZB_DialectDb4 ? ZB_DialectClassic : dialect;
        }
        default: return ZB_DialectClassic;
    }
}

// The descriptors as they stand in the file; the library checks them.
std::vector<Field> PeekFields(const std::string& path, const Header& header) {
    std::vector<Field> fields;
    std::ifstream file(path, std::ios::binary);
    file.seekg(kDescriptor);
    uint8_t bytes[kDescriptor];
    for (size_t end = 2 * kDescriptor; end <= header.length; end += kDescriptor) {
        if (!file.read(reinterpret_cast<char*>(bytes), kDescriptor) || bytes[0] == 0x0D) break;
        Field field{};
        field.type = static_cast<char>(bytes[11] & ~0x20);
        field.width = bytes[16];
        if (field.type == 'C')
            field.width = Le16(bytes + 16);
        else
            field.decimals = bytes[17];
        fields.push_back(field);
    }
    return fields;
}

// Tries until `attempt` succeeds or the wait is over.
template <typename Attempt>
bool TryFor(double seconds, Attempt attempt) {
    using std::chrono::steady_clock;
    auto end = steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!attempt()) {
        if (steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

}  // namespace

Header ReadHeader(const std::string& path) {
    Header header;
    std::ifstream file(path, std::ios::binary);
    uint8_t bytes[kDescriptor] = {};
    file.read(reinterpret_cast<char*>(bytes), sizeof bytes);
    header.version = bytes[0];
    std::memcpy(header.date, bytes + 1, 3);
    header.records = Le16(bytes + 4) | uint32_t{Le16(bytes + 6)} << 16;
    header.length = Le16(bytes + 8);
    header.recordLength = Le16(bytes + 10);
    header.production = bytes[28];
    header.language = bytes[29];
    return header;
}

const char* DialectName(int dialect) {
    for (const DialectLimits& limits : kDialects)
        if (limits.number == dialect) return limits.name;
    return "";
}

int FittingDialect(const std::vector<Field>& fields) {
    for (int dialect : {ZB_DialectClassic, ZB_DialectDb4, ZB_DialectWide, ZB_DialectWideChar})
        if (Holds(kDialects[dialect - 1], fields)) return dialect;
    return ZB_DialectClassic;
}

std::vector<ZbFieldSpec> Specs(const std::vector<Field>& fields) {
    std::vector<ZbFieldSpec> specs;
    for (const Field& field : fields) {
        ZbFieldSpec one = {};
        // A name that is too long stays too long, for the library to refuse.
        std::memcpy(one.name, field.name.data(), std::min(field.name.size(), sizeof one.name - 1));
        one.type = static_cast<uint16_t>(field.type);
        one.width = field.width;
        one.decimals = field.decimals;
        specs.push_back(one);
    }
    return specs;
}

Data::Data(const std::string& path, Access access, const OpenOptions& openOptions)
    : name(FindFile(path)), options(openOptions), head(ReadHeader(name)) {
    if (options.dialect == 0) {
        std::error_code error;
        uint64_t length = std::filesystem::file_size(name, error);
        options.dialect = ChooseDialect(head, PeekFields(name, head), error ? 0 : length);
    }
    if (access != Access::read && ::access(name.c_str(), W_OK) != 0)
        throw CodeFailure(ZB_ErrReadOnly, name, "permission denied");
    Open(access);
    Describe();
}

Data::~Data() {
    if (handle < 0) return;
    ZBESCODE(0);
    ZBDDCLOSE(handle);
}

void Data::Close() {
    int16_t closing = handle;
    handle = -1;
    Check(ZBDDCLOSE(closing), name);
}

void Data::Open(Access access) {
    auto mode = static_cast<uint16_t>(options.dialect);
    if (access == Access::read) mode |= ZB_ReadOnly | ZB_Shared;
    if (access == Access::write) mode |= ZB_Shared;
    int code = 0;
    bool open = TryFor(options.wait, [&] {
        uint16_t opened = 0xFFFF;
        code = ZBDDOPENX(&opened, name.c_str(), mode);
        if (code < 0) {
            ZBESCODE(0);
            // Readable, and yet not to be had: somebody keeps it to himself.
            return code != ZB_ErrOpen || ::access(name.c_str(), R_OK) != 0;
        }
        handle = static_cast<int16_t>(opened);
        Check(ZBDDINFO(handle, &info), name);
        // An open that can't have what it asked for falls back to reading.
        if (access == Access::read || !(info.infoFlags & kInfoReadOnly)) return true;
        ZBDDCLOSE(handle);
        handle = -1;
        return false;
    });
    if (code == ZB_WarnFileSize) oddLength = true;
    if (code >= 0 && !open)
        throw CodeFailure(ZB_ErrLockViolation, name,
                          "another program has the file open (zb locks shows which)");
    if (code >= 0) return;
    bool readable = ::access(name.c_str(), R_OK) == 0;
    if (code == ZB_ErrOpen)
        throw CodeFailure(
            code, name,
            readable ? "another program may keep it to itself (zb locks shows which)" : "permission denied");
    std::string detail;
    if (code == ZB_ErrFileType) {
        char text[64];
        std::snprintf(text, sizeof text, "its version byte is 0x%02X", head.version);
        detail = text;
    }
    Failure failure = CodeFailure(code, name, detail);
    // Whatever else stops an open is in the file's own header.
    bool fault = code == ZB_ErrFieldName || code == ZB_ErrFieldType || code == ZB_ErrFieldWidth ||
                 code == ZB_ErrFieldCount;
    throw Failure(fault ? Exit::damaged : failure.status, failure.what());
}

void Data::Describe() {
    ZbDataRecordInfo record = {};
    Check(ZBDDRINFO(handle, &record), name);
    buffer = reinterpret_cast<const char*>(record.buffer);
    std::vector<ZbFieldSpec> specs(record.fieldCount + 1u);
    uint16_t widest = 0;
    Check(ZBDDFINFO(handle, &widest, specs.data()), name);
    specs.pop_back();
    table.clear();
    uint16_t offset = 1;
    for (const ZbFieldSpec& one : specs) {
        Field field;
        field.name = one.name;
        field.type = static_cast<char>(one.type);
        field.width = one.width;
        // The decimals of a wide text are the high byte of its width.
        field.decimals = field.type == 'C' ? 0 : one.decimals;
        field.offset = offset;
        offset = static_cast<uint16_t>(offset + field.width);
        table.push_back(field);
    }
}

size_t Data::FieldNumber(const std::string& fieldName) const {
    for (size_t number = 0; number < table.size(); ++number)
        if (strcasecmp(table[number].name.c_str(), fieldName.c_str()) == 0) return number;
    std::vector<std::string> names;
    for (const Field& field : table) names.push_back(field.name);
    std::string near = Nearest(fieldName, names);
    throw Failure(Exit::notFound, name + ": " + DescribeCode(ZB_ErrFieldName) + "; there is no field " +
                                      fieldName + (near.empty() ? "" : ", did you mean " + near + "?") +
                                      " (zb info shows all)");
}

uint32_t Data::count() const {
    uint32_t records = 0;
    Check(ZBDDSIZE(handle, &records), name);
    return static_cast<int32_t>(records) < 0 ? 0 : records;
}

bool Data::Read(uint32_t record) {
    int code = ZBDDRGET(handle, static_cast<int32_t>(record));
    if (code < 0) Check(code, name, "record " + std::to_string(record));
    return code == ZB_WarnDeleted;
}

void Data::Clear() { Check(ZBDDRCLEAR(handle), name); }

void Data::Put(size_t field, const std::string& bytes) {
    Check(ZBDDFPUTS(handle, static_cast<int16_t>(field), bytes.c_str()), name);
}

uint32_t Data::Append() {
    uint32_t record = 0;
    Check(ZBDDRPUT(handle, &record, kPutAppend), name);
    return record;
}

void Data::Update(uint32_t record) { Check(ZBDDRPUT(handle, &record, kPutUpdate), name); }

void Data::Delete(uint32_t record) { Check(ZBDDRDEL(handle, static_cast<int32_t>(record)), name); }

void Data::Recall(uint32_t record) { Check(ZBDDRUNDEL(handle, static_cast<int32_t>(record)), name); }

void Data::Pack() {
    int16_t packed = handle;
    int code = ZBDDPACK(&packed);
    if (code < 0) {
        ZBESCODE(0);
        handle = -1;  // how far the pack had come decides whether it is still open
        throw CodeFailure(code, name);
    }
    handle = packed;
    Describe();
}

void Data::LockForAppend() {
    uint16_t conflict = 0;
    bool locked = TryFor(options.wait, [&] {
        Check(ZBDDLOCK(handle, kHeaderLock, &conflict), name);
        return conflict != kConflict;
    });
    if (!locked)
        throw CodeFailure(ZB_ErrLockViolation, name, "no record was added (zb locks shows who holds it)");
}

void Data::UnlockForAppend() {
    uint16_t conflict = 0;
    Check(ZBDDUNLOCK(handle, kHeaderLock, &conflict), name);
}

void Data::LockUntilClose(int16_t kind) {
    uint16_t conflict = 0;
    bool locked = TryFor(options.wait, [&] {
        Check(ZBDDLOCK(handle, kind, &conflict), name);
        return conflict != kConflict;
    });
    if (!locked)
        throw CodeFailure(ZB_ErrLockViolation, name,
                          "the work has to wait for it (zb locks shows who holds it)");
}

void Data::LockRecord(uint32_t record) {
    uint16_t conflict = 0;
    bool locked = TryFor(options.wait, [&] {
        Check(ZBDDRLOCK(handle, record, kLockRecord, &conflict), name);
        return conflict != kConflict;
    });
    if (!locked)
        throw CodeFailure(ZB_ErrLockViolation, name,
                          "record " + std::to_string(record) + " is unchanged (zb locks shows who holds it)");
}

void Data::UnlockRecord(uint32_t record) {
    uint16_t conflict = 0;
    Check(ZBDDRLOCK(handle, record, kUnlockRecord, &conflict), name);
}

}  // namespace tool
