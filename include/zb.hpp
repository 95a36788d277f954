// zb.hpp - libzb for C++20.
//
// Owning objects over the calls of zb.h, and nothing besides: each member function
// makes the calls that its comment names, and zb.h tells what those do. What is
// added is that objects close themselves, that a failure is thrown as zb::Error,
// and that records and keys can be walked by a range-based for.
//
//     zb::Library library;
//     zb::DataFile people("PEOPLE.DBF", ZB_DialectClassic | ZB_Shared);
//     for (zb::Record person : people.records())
//         if (!person.deleted()) std::cout << person["NAME"].text() << '\n';
//
// A failure that is thrown has been cleared in the library, so that the next call
// works. Warnings are results: where a call can warn, the function says how it
// tells. Destructors drop failures; call close() where one matters. Objects are
// moved and not copied, belong inside the life of the Library object, and, like
// the library, must not be used by two threads at once.
#ifndef ZB_HPP
#define ZB_HPP

#include <chrono>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "zb.h"

namespace zb {

// ---- failures

// The name that zb.h gives a code: "ZB_ErrSeek". Empty for a number of the
// platform's own.
constexpr std::string_view codeName(int code) {
    switch (code) {
#define ZB_NAME(name) \
    case name: return #name
        ZB_NAME(ZB_WarnFuncExists);
        ZB_NAME(ZB_WarnNoFlush);
        ZB_NAME(ZB_WarnFileSize);
        ZB_NAME(ZB_WarnRounded);
        ZB_NAME(ZB_WarnTruncated);
        ZB_NAME(ZB_KeyNear);
        ZB_NAME(ZB_KeyEnd);
        ZB_NAME(ZB_KeyEmpty);
        ZB_NAME(ZB_WarnDeleted);
        ZB_NAME(ZB_Ok);
        ZB_NAME(ZB_ErrWrite);
        ZB_NAME(ZB_ErrRead);
        ZB_NAME(ZB_ErrMemory);
        ZB_NAME(ZB_ErrSeek);
        ZB_NAME(ZB_ErrRenameMissing);
        ZB_NAME(ZB_ErrStructure);
        ZB_NAME(ZB_ErrExpression);
        ZB_NAME(ZB_ErrNoSlot);
        ZB_NAME(ZB_ErrNoPageHeld);
        ZB_NAME(ZB_ErrPageNotHeld);
        ZB_NAME(ZB_ErrBadOption);
        ZB_NAME(ZB_ErrBadHandle);
        ZB_NAME(ZB_ErrBadName);
        ZB_NAME(ZB_ErrBadDate);
        ZB_NAME(ZB_ErrBadTime);
        ZB_NAME(ZB_ErrMemoShort);
        ZB_NAME(ZB_ErrFileType);
        ZB_NAME(ZB_ErrHeaderLength);
        ZB_NAME(ZB_ErrHeaderDate);
        ZB_NAME(ZB_ErrNullPointer);
        ZB_NAME(ZB_ErrKeyType);
        ZB_NAME(ZB_ErrKeyLength);
        ZB_NAME(ZB_ErrKeySize);
        ZB_NAME(ZB_ErrRootPage);
        ZB_NAME(ZB_ErrKeysPerPage);
        ZB_NAME(ZB_ErrFieldCount);
        ZB_NAME(ZB_ErrFieldName);
        ZB_NAME(ZB_ErrFieldWidth);
        ZB_NAME(ZB_ErrFieldDecimals);
        ZB_NAME(ZB_ErrFieldType);
        ZB_NAME(ZB_ErrRecordLength);
        ZB_NAME(ZB_ErrFieldValue);
        ZB_NAME(ZB_ErrMemoWidth);
        ZB_NAME(ZB_ErrProductionFlag);
        ZB_NAME(ZB_ErrReadOnly);
        ZB_NAME(ZB_ErrLockViolation);
        ZB_NAME(ZB_ErrShareBuffer);
        ZB_NAME(ZB_ErrAccess);
        ZB_NAME(ZB_ErrHalfPage);
        ZB_NAME(ZB_ErrOpen);
        ZB_NAME(ZB_ErrFlush);
        ZB_NAME(ZB_ErrTagHandle);
        ZB_NAME(ZB_ErrBlockSize);
        ZB_NAME(ZB_ErrTagName);
        ZB_NAME(ZB_ErrMdxBlock);
        ZB_NAME(ZB_ErrMdxTagTable);
        ZB_NAME(ZB_ErrMdxTagSlot);
        ZB_NAME(ZB_ErrMdxTagCount);
        ZB_NAME(ZB_ErrMdxTagFlags);
        ZB_NAME(ZB_ErrBadSignature);
        ZB_NAME(ZB_ErrTagInUse);
        ZB_NAME(ZB_ErrLockBlock);
        ZB_NAME(ZB_ErrNotAttached);
        ZB_NAME(ZB_ErrIdxPageOver);
        ZB_NAME(ZB_ErrIdxPageUnder);
#undef ZB_NAME
        default: return {};
    }
}

// A failed call: its code, the code's name and the name of the function of zb.h.
class Error : public std::runtime_error {
  public:
    Error(int code, const char* call) : std::runtime_error(Text(code, call)), code_(code), call_(call) {}

    int code() const { return code_; }
    std::string_view name() const { return codeName(code_); }
    std::string_view call() const { return call_; }

  private:
    static std::string Text(int code, const char* call) {
        std::string text = call;
        if (std::string_view name = codeName(code); !name.empty())
            return text.append(": ").append(name).append(" (").append(std::to_string(code)).append(")");
        // The library has set two bits in the platform's own error number.
        return text.append(": error ").append(std::to_string(code & 0x3FFF)).append(" of the platform");
    }

    int code_;
    const char* call_;
};

namespace detail {

[[noreturn]] inline void Throw(int32_t code, const char* call) {
    ZBESCODE(0);
    throw Error(code, call);
}

inline int32_t Check(int32_t code, const char* call) {
    if (code < 0) Throw(code, call);
    return code;
}

// Calls a function of zb.h and throws what fails; gives 0 or the warning.
#define ZB_CHECK(function, ...) ::zb::detail::Check(function(__VA_ARGS__), #function)

// A handle that is closed once, by whoever holds it last.
template <class Calls>
class Handle {
    using Number = typename Calls::Number;

  public:
    Handle() = default;
    explicit Handle(Number number) : number_(number), open_(true) {}
    Handle(Handle&& other) noexcept : number_(other.number_), open_(std::exchange(other.open_, false)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(number_, other.number_);
        std::swap(open_, other.open_);
        return *this;
    }
    ~Handle() {
        if (open_ && Calls::Close(number_) < 0) ZBESCODE(0);
    }

    Number get() const { return number_; }
    bool isOpen() const { return open_; }
    Number release() {
        open_ = false;
        return number_;
    }

  private:
    Number number_{};
    bool open_ = false;
};

struct DataCalls {
    using Number = int16_t;
    static int32_t Close(Number data) { return ZBDDCLOSE(data); }
};

struct FreeBlock {
    void operator()(void* block) const { ZBMFREE(block); }
};
using Block = std::unique_ptr<void, FreeBlock>;

inline std::string_view WithoutBlanks(std::string_view text) {
    size_t last = text.find_last_not_of(' ');
    return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

// The calls change an expression in place, and so they get a copy.
inline std::vector<char> Writable(std::string_view text) {
    std::vector<char> copy(text.begin(), text.end());
    copy.push_back('\0');
    return copy;
}

}  // namespace detail

// The type of a field.
enum class Type : char { Character = 'C', Date = 'D', Float = 'F', Logical = 'L', Memo = 'M', Number = 'N' };

using Date = std::chrono::year_month_day;

namespace detail {

// A date as eight digits yyyymmdd.
struct Digits {
    explicit Digits(Date date) {
        auto put = [this](int end, unsigned value, int count) {
            for (; count > 0; count--, value /= 10) text[--end] = static_cast<char>('0' + value % 10);
        };
        put(4, static_cast<unsigned>(static_cast<int>(date.year())), 4);
        put(6, static_cast<unsigned>(date.month()), 2);
        put(8, static_cast<unsigned>(date.day()), 2);
    }
    char text[9] = {};
};

}  // namespace detail

// ---- the library

// The styles of a date's text, with the numbers of zb.h.
enum class DateStyle : uint8_t {
    Profile = 0,  // what the profile file says
    Gregorian = 1,
    GregorianLong,
    Julian,
    Ymd,
    Dmy,
    German,
    GermanLong,
    British,
    BritishLong,
    French,
    FrenchLong,
    Italian,
    ItalianLong,
    Ensi,
    EnsiLong
};

// Starts the library and ends it (ZBDINIT, ZBDTERM). There is one in a process.
class Library {
  public:
    explicit Library(int16_t tableSize = 100, DateStyle style = DateStyle::Profile) {
        ZB_CHECK(ZBDINIT, tableSize, static_cast<uint8_t>(style));
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library() { ZBDTERM(); }

    void setDateStyle(DateStyle style) { ZB_CHECK(ZBCDSTYLE, static_cast<uint16_t>(style)); }
    DateStyle dateStyle() const {
        uint16_t style;
        char name[23];
        ZB_CHECK(ZBCDGSTYLE, &style, name);
        return static_cast<DateStyle>(style);
    }

    // Logs failures to a file, whose name has at most 30 bytes (ZBESLOG).
    void logTo(const std::string& name) { ZB_CHECK(ZBESLOG, 1, name.c_str()); }
    void stopLog() { ZB_CHECK(ZBESLOG, 0, nullptr); }
};

// Today, as the library sees it (ZBCDIGET).
inline Date today() {
    int16_t year, month, day, weekday;
    ZB_CHECK(ZBCDIGET, &year, &month, &day, &weekday);
    return std::chrono::year{year} / month / day;
}

// ---- data files

// What a field is: for creating a file, and as an open file tells it.
struct FieldInfo {
    std::string name;
    Type type = Type::Character;
    uint16_t width = 0;
    uint16_t decimals = 0;
};

// What happened to a value on its way into a field, or to a record.
enum class Warning { None = 0, Truncated = ZB_WarnTruncated, Rounded = ZB_WarnRounded };

// A field of the record in memory. It stays good while its file is open and isn't
// packed, whatever record is read: hold it where many records are visited.
class Field {
  public:
    Type type() const { return type_; }
    uint16_t width() const { return width_; }

    // The field's bytes where they stand in the record buffer: no call, no copy.
    std::string_view raw() const { return {bytes_, width_}; }
    // The same without the blanks at the end.
    std::string_view text() const { return detail::WithoutBlanks(raw()); }

    // A number, 0 if the field is blank (ZBDDFGET). ZB_ErrFieldType unless the type
    // is N or F.
    double number() const {
        if (type_ != Type::Number && type_ != Type::Float) detail::Throw(ZB_ErrFieldType, "ZBDDFGET");
        double value = 0;
        ZB_CHECK(ZBDDFGET, data_, number_, &value);
        return value;
    }
    // A memo's block, 0 if there is none (ZBDDFGET). ZB_ErrFieldType unless the type
    // is M.
    uint32_t block() const {
        if (type_ != Type::Memo) detail::Throw(ZB_ErrFieldType, "ZBDDFGET");
        uint32_t value = 0;
        ZB_CHECK(ZBDDFGET, data_, number_, &value);
        return value;
    }
    // A logical value, none where the byte is none of T, t, Y, y, F, f, N and n.
    std::optional<bool> logical() const {
        switch (*bytes_) {
            case 'T':
            case 't':
            case 'Y':
            case 'y': return true;
            case 'F':
            case 'f':
            case 'N':
            case 'n': return false;
            default: return std::nullopt;
        }
    }
    // The date of eight digits yyyymmdd, none where they are no date.
    std::optional<Date> date() const {
        if (width_ < 8) return std::nullopt;
        unsigned digits[8];
        for (int i = 0; i < 8; i++) {
            digits[i] = static_cast<unsigned char>(bytes_[i]) - unsigned{'0'};
            if (digits[i] > 9) return std::nullopt;
        }
        Date date{std::chrono::year(
                      static_cast<int>(digits[0] * 1000 + digits[1] * 100 + digits[2] * 10 + digits[3])),
                  std::chrono::month(digits[4] * 10 + digits[5]),
                  std::chrono::day(digits[6] * 10 + digits[7])};
        return date.ok() ? std::optional(date) : std::nullopt;
    }

    bool blank() const { return text().empty(); }

    // Put a value into the record in memory, as the type has it (ZBDDFPUT), or the
    // field's bytes whatever its type (ZBDDFPUTS).
    Warning put(double value) const { return Put(value, type_ == Type::Number || type_ == Type::Float); }
    Warning put(int value) const { return put(static_cast<double>(value)); }
    Warning putBlock(uint32_t block) const { return Put(block, type_ == Type::Memo); }
    Warning put(bool value) const {
        return Put(static_cast<char>(value ? 'T' : 'F'), type_ == Type::Logical);
    }
    Warning put(Date value) const { return put(detail::Digits(value).text); }
    Warning put(const std::string& text) const { return put(text.c_str()); }
    Warning put(const char* text) const {
        return static_cast<Warning>(ZB_CHECK(ZBDDFPUTS, data_, number_, text));
    }
    Warning clear() const { return put(""); }

  private:
    friend class DataFile;
    Field(int16_t data, int16_t number, Type type, uint16_t width, const char* bytes)
        : bytes_(bytes), data_(data), number_(number), width_(width), type_(type) {}

    template <class Value>
    Warning Put(const Value& value, bool fits) const {
        if (!fits) detail::Throw(ZB_ErrFieldType, "ZBDDFPUT");
        return static_cast<Warning>(ZB_CHECK(ZBDDFPUT, data_, number_, &value));
    }

    const char* bytes_;
    int16_t data_;
    int16_t number_;
    uint16_t width_;
    Type type_;
};

class DataFile;

// A record that a walk has read: the file's record in memory, under its number.
class Record {
  public:
    uint32_t number() const { return number_; }
    bool deleted() const { return deleted_; }
    Field operator[](std::string_view name) const;
    Field operator[](const char* name) const { return (*this)[std::string_view(name)]; }
    Field operator[](size_t field) const;
    DataFile& file() const { return *file_; }

  private:
    friend class RecordRange;
    DataFile* file_ = nullptr;
    uint32_t number_ = 0;
    bool deleted_ = false;
};

// The records of a file in the order of their numbers, up to the record count at
// begin(). Each step reads a record into the file's memory, so a walk is not to
// be mixed with other reads of the same file, unless the record is done with.
class RecordRange {
  public:
    class Iterator {
      public:
        using value_type = Record;
        using difference_type = std::ptrdiff_t;

        Iterator() = default;
        const Record& operator*() const { return record_; }
        const Record* operator->() const { return &record_; }
        Iterator& operator++() {
            record_.number_++;
            Read();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return record_.number_ > last_; }

      private:
        friend class RecordRange;
        Iterator(DataFile& file, uint32_t first, uint32_t last) : last_(last) {
            record_.file_ = &file;
            record_.number_ = first;
            Read();
        }
        void Read();

        Record record_;
        uint32_t last_ = 0;
    };

    Iterator begin() const;
    std::default_sentinel_t end() const { return {}; }

  private:
    friend class DataFile;
    explicit RecordRange(DataFile& file) : file_(&file) {}
    DataFile* file_;
};

// The kinds of lock that a data file has; zb.h tells what each is for.
enum class Lock : int16_t { Header = 1, File = 2, Records = 3, Shared = 4 };

// A lock that is held until the object goes (ZBDDUNLOCK, ZBDDRLOCK).
class LockGuard {
  public:
    LockGuard(LockGuard&& other) noexcept
        : data_(other.data_),
          kind_(other.kind_),
          record_(other.record_),
          held_(std::exchange(other.held_, false)) {}
    LockGuard& operator=(LockGuard&&) = delete;
    ~LockGuard() {
        if (held_ && Unlock() < 0) ZBESCODE(0);
    }
    void unlock() {
        if (std::exchange(held_, false)) detail::Check(Unlock(), record_ != 0 ? "ZBDDRLOCK" : "ZBDDUNLOCK");
    }

  private:
    friend class DataFile;
    LockGuard(int16_t data, int16_t kind, uint32_t record) : data_(data), kind_(kind), record_(record) {}
    int32_t Unlock() const {
        return record_ != 0 ? ZBDDRLOCK(data_, record_, 6, nullptr) : ZBDDUNLOCK(data_, kind_, nullptr);
    }

    int16_t data_;
    int16_t kind_;
    uint32_t record_;
    bool held_ = true;
};

// An open data file with its record in memory.
class DataFile {
  public:
    // Creates an empty file, and leaves it closed (ZBDDCREATE).
    static void create(const std::string& path, const std::vector<FieldInfo>& fields,
                       int mode = ZB_DialectClassic) {
        std::vector<ZbFieldSpec> specs(fields.size());
        for (size_t i = 0; i < fields.size(); i++) {
            if (fields[i].name.size() >= sizeof specs[i].name) detail::Throw(ZB_ErrFieldName, "ZBDDCREATE");
            std::memcpy(specs[i].name, fields[i].name.c_str(), fields[i].name.size() + 1);
            specs[i].type = static_cast<uint16_t>(fields[i].type);
            specs[i].width = fields[i].width;
            specs[i].decimals = fields[i].decimals;
        }
        if (specs.empty()) detail::Throw(ZB_ErrFieldCount, "ZBDDCREATE");
        ZB_CHECK(ZBDDCREATE, path.c_str(), static_cast<int16_t>(specs.size()), specs.data(),
                 static_cast<int16_t>(mode));
    }

    // Opens a file (ZBDDOPENX); `mode` is a dialect and ZB_ReadOnly, ZB_Shared.
    explicit DataFile(const std::string& path, int mode = ZB_DialectClassic) {
        uint16_t handle;
        sizeFits_ =
            ZB_CHECK(ZBDDOPENX, &handle, path.c_str(), static_cast<uint16_t>(mode)) != ZB_WarnFileSize;
        handle_ = Owner(static_cast<int16_t>(handle));
        Describe();
    }

    int16_t handle() const { return handle_.get(); }

    // Closes the file and says what came of it (ZBDDCLOSE); it stays open when
    // that failed.
    void close() {
        ZB_CHECK(ZBDDCLOSE, handle());
        handle_.release();
    }

    // Whether the file's length was what its header said at the open.
    bool sizeFits() const { return sizeFits_; }
    const std::vector<FieldInfo>& fields() const { return fields_; }
    ZbDataInfo info() const {
        ZbDataInfo info{};
        ZB_CHECK(ZBDDINFO, handle(), &info);
        return info;
    }
    bool readOnly() const { return info().infoFlags & 1; }

    // The record count in memory (ZBDDSIZE), and its renewal from the file (ZBDDHGET).
    uint32_t size() const {
        uint32_t count = 0;
        ZB_CHECK(ZBDDSIZE, handle(), &count);
        return count;
    }
    void refresh() { ZB_CHECK(ZBDDHGET, handle()); }

    // Fields of the record in memory, by name (ZBDDFNAM2NO) or by number from 0.
    Field operator[](std::string_view name) const {
        char text[12];
        size_t length = name.size() < sizeof text ? name.size() : sizeof text - 1;
        std::memcpy(text, name.data(), length);
        text[length] = '\0';
        int16_t number = 0;
        ZB_CHECK(ZBDDFNAM2NO, handle(), &number, text);
        return (*this)[static_cast<size_t>(number)];
    }
    Field operator[](const char* name) const { return (*this)[std::string_view(name)]; }
    Field operator[](size_t number) const {
        if (number >= fields_.size()) detail::Throw(ZB_ErrFieldCount, "ZBDDFGET");
        const FieldInfo& info = fields_[number];
        return {handle(), static_cast<int16_t>(number), info.type, info.width, buffer_ + offsets_[number]};
    }

    // The record's bytes, the delete flag first.
    std::string_view raw() const { return {buffer_, recordLength_}; }

    // Reads a record into memory; true if it is live, false if it carries the
    // delete flag (ZBDDRGET).
    bool read(uint32_t record) {
        return ZB_CHECK(ZBDDRGET, handle(), static_cast<int32_t>(record)) != ZB_WarnDeleted;
    }
    uint32_t current() const {
        uint32_t record = 0;
        ZB_CHECK(ZBDDRNUM, handle(), &record);
        return record;
    }
    // Fills the record in memory with blanks (ZBDDRCLEAR).
    void clear() { ZB_CHECK(ZBDDRCLEAR, handle()); }
    // Writes the record in memory behind the others, and gives its number, or over
    // an existing one (ZBDDRPUT). Where others append too, hold Lock::Header.
    uint32_t append() {
        uint32_t record = 0;
        ZB_CHECK(ZBDDRPUT, handle(), &record, 0);
        return record;
    }
    void update(uint32_t record) { ZB_CHECK(ZBDDRPUT, handle(), &record, 0x100); }
    void update() { update(current()); }
    // Set and clear a record's delete flag (ZBDDRDEL, ZBDDRUNDEL).
    void erase(uint32_t record) { ZB_CHECK(ZBDDRDEL, handle(), static_cast<int32_t>(record)); }
    void recall(uint32_t record) { ZB_CHECK(ZBDDRUNDEL, handle(), static_cast<int32_t>(record)); }

    RecordRange records() { return RecordRange(*this); }

    // Locks, as guards; none where another holds a lock that is in the way.
    [[nodiscard]] std::optional<LockGuard> lock(Lock kind) {
        uint16_t conflict = 0;
        ZB_CHECK(ZBDDLOCK, handle(), static_cast<int16_t>(kind), &conflict);
        if (conflict != 0) return std::nullopt;
        return LockGuard(handle(), static_cast<int16_t>(kind), 0);
    }
    [[nodiscard]] std::optional<LockGuard> lockRecord(uint32_t record) {
        uint16_t conflict = 0;
        ZB_CHECK(ZBDDRLOCK, handle(), record, 7, &conflict);
        if (conflict != 0) return std::nullopt;
        return LockGuard(handle(), 7, record);
    }

    // Removes the deleted records for good (ZBDDPACK). Fields got before are void.
    void pack() {
        int16_t data = handle_.release();
        int32_t code = ZBDDPACK(&data);
        if (data >= 0) handle_ = Owner(data);
        detail::Check(code, "ZBDDPACK");
        Describe();
    }

  private:
    using Owner = detail::Handle<detail::DataCalls>;

    void Describe() {
        ZbDataRecordInfo record{};
        ZB_CHECK(ZBDDRINFO, handle(), &record);
        buffer_ = reinterpret_cast<const char*>(record.buffer);
        recordLength_ = record.recordLength;
        std::vector<ZbFieldSpec> specs(record.fieldCount);
        uint16_t widest = 0;
        if (!specs.empty()) ZB_CHECK(ZBDDFINFO, handle(), &widest, specs.data());
        fields_.clear();
        offsets_.clear();
        uint32_t offset = 1;
        for (const ZbFieldSpec& spec : specs) {
            auto type = static_cast<Type>(spec.type);
            uint16_t decimals = type == Type::Number || type == Type::Float ? spec.decimals : uint16_t{0};
            fields_.push_back({spec.name, type, spec.width, decimals});
            offsets_.push_back(offset);
            offset += spec.width;
        }
    }

    Owner handle_;
    const char* buffer_ = nullptr;
    uint16_t recordLength_ = 0;
    bool sizeFits_ = true;
    std::vector<FieldInfo> fields_;
    std::vector<uint32_t> offsets_;
};

inline Field Record::operator[](std::string_view name) const { return (*file_)[name]; }
inline Field Record::operator[](size_t field) const { return (*file_)[field]; }

inline void RecordRange::Iterator::Read() {
    if (record_.number_ <= last_) record_.deleted_ = !record_.file_->read(record_.number_);
}
inline RecordRange::Iterator RecordRange::begin() const { return {*file_, 1, file_->size()}; }

// ---- memo files

namespace detail {

struct DbtCalls {
    using Number = int16_t;
    static int32_t Close(int16_t memo) { return ZBDTCLOSE(memo); }
    static int32_t Open(int16_t* memo, const char* path, uint16_t mode) {
        return ZB_CHECK(ZBDTOPENX, memo, path, mode);
    }
    static int32_t Read(int16_t memo, int32_t block, void** text) {
        return ZB_CHECK(ZBDTRGET, memo, block, text, 0);
    }
    static int32_t Write(int16_t memo, int32_t* block, const char* text, int16_t option) {
        return ZB_CHECK(ZBDTRPUT, memo, block, text, static_cast<uint16_t>(option));
    }
    static int32_t Pack(int16_t data, int16_t* memo) { return ZBDTPACK(data, memo); }
    static constexpr const char* PackName = "ZBDTPACK";
};

struct FptCalls {
    using Number = int16_t;
    static int32_t Close(int16_t memo) { return ZBDWCLOSE(memo); }
    static int32_t Open(int16_t* memo, const char* path, uint16_t mode) {
        return ZB_CHECK(ZBDWOPENX, memo, path, mode);
    }
    static int32_t Read(int16_t memo, int32_t block, void** text) {
        return ZB_CHECK(ZBDWRGET, memo, block, text);
    }
    static int32_t Write(int16_t memo, int32_t* block, const char* text, int16_t option) {
        return ZB_CHECK(ZBDWRPUT, memo, block, text, option);
    }
    static int32_t Pack(int16_t data, int16_t* memo) { return ZBDWPACK(data, memo); }
    static constexpr const char* PackName = "ZBDWPACK";
};

}  // namespace detail

// An open memo file: DbtFile or FptFile.
template <class Calls>
class MemoFile {
  public:
    // ZBDTOPENX, ZBDWOPENX; `mode` is a dialect and ZB_ReadOnly, ZB_Shared.
    explicit MemoFile(const std::string& path, int mode = 0) {
        int16_t memo;
        Calls::Open(&memo, path.c_str(), static_cast<uint16_t>(mode));
        handle_ = Owner(memo);
    }

    int16_t handle() const { return handle_.get(); }

    // The memo at a block (ZBDTRGET, ZBDWRGET). It ends at its first zero byte.
    std::string read(uint32_t block) const {
        void* text = nullptr;
        Calls::Read(handle(), static_cast<int32_t>(block), &text);
        detail::Block owner(text);
        return static_cast<const char*>(text);
    }
    // Writes a memo and gives its block; replace() writes over the one at a block
    // and gives the block that it then has (ZBDTRPUT, ZBDWRPUT).
    uint32_t write(const std::string& text) {
        int32_t block = 0;
        Calls::Write(handle(), &block, text.c_str(), ZB_MemoNew);
        return static_cast<uint32_t>(block);
    }
    uint32_t replace(uint32_t at, const std::string& text) {
        auto block = static_cast<int32_t>(at);
        Calls::Write(handle(), &block, text.c_str(), ZB_MemoReplace);
        return static_cast<uint32_t>(block);
    }
    // Rewrites the file without dead space (ZBDTPACK, ZBDWPACK).
    void pack(DataFile& data) {
        int16_t memo = handle_.release();
        int32_t code = Calls::Pack(data.handle(), &memo);
        if (memo >= 0) handle_ = Owner(memo);
        detail::Check(code, Calls::PackName);
    }

  private:
    using Owner = detail::Handle<Calls>;
    Owner handle_;
};

// ZBDTCREATEX: blocks of `multiplier` times 512 bytes.
class DbtFile : public MemoFile<detail::DbtCalls> {
  public:
    using MemoFile::MemoFile;
    static void create(const std::string& path, int16_t multiplier = 1, int dialect = ZB_DialectClassic) {
        ZB_CHECK(ZBDTCREATEX, path.c_str(), multiplier, static_cast<int16_t>(dialect));
    }
};

// ZBDWCREATE: `size` 1 to 32 gives blocks of that many times 512 bytes, 33 to 511
// of that many bytes.
class FptFile : public MemoFile<detail::FptCalls> {
  public:
    using MemoFile::MemoFile;
    static void create(const std::string& path, int16_t size = 64) {
        ZB_CHECK(ZBDWCREATE, path.c_str(), size);
    }
};

// ---- indexes

// What a search or a step came to.
enum class Answer {
    Found = 0,
    Empty = ZB_KeyEmpty,  // the index holds no keys
    End = ZB_KeyEnd,      // a step passed an end; the key is the one at that end
    Near = ZB_KeyNear     // not there: the key is the one before, as zb.h tells
};

// A key and its record. The key's bytes are the index's, and good until its next
// call.
struct Entry {
    Answer answer = Answer::Empty;
    std::string_view key;
    uint32_t record = 0;
    explicit operator bool() const { return answer == Answer::Found; }
};

// How find() compares.
enum class Find : int16_t {
    First = 0,    // the first key that begins with the text, or equals the number
    Exact = 2,    // the whole key, and the record
    Wildcard = 4  // as First, with '?' for any byte (NDX, MDX)
};

namespace detail {

// The calls that all families share, under one set of names.
#define ZB_KEY_CALLS(F)                                                              \
    static int32_t Top(Number index, void* key, uint32_t* record) {                  \
        return ZB_CHECK(F##KTOP, index, key, record);                                \
    }                                                                                \
    static int32_t Bottom(Number index, void* key, uint32_t* record) {               \
        return ZB_CHECK(F##KBOT, index, key, record);                                \
    }                                                                                \
    static int32_t Next(Number index, void* key, uint32_t* record) {                 \
        return ZB_CHECK(F##KNEXT, index, key, record);                               \
    }                                                                                \
    static int32_t Previous(Number index, void* key, uint32_t* record) {             \
        return ZB_CHECK(F##KPREV, index, key, record);                               \
    }                                                                                \
    static int32_t Current(Number index, void* key, uint32_t* record) {              \
        return ZB_CHECK(F##KCUR, index, key, record);                                \
    }                                                                                \
    static int32_t Search(Number index, void* key, uint32_t* record, int16_t mode) { \
        return ZB_CHECK(F##KFIND, index, key, record, mode);                         \
    }                                                                                \
    static int32_t Add(Number index, const void* key, uint32_t record) {             \
        return ZB_CHECK(F##KADD, index, key, record);                                \
    }                                                                                \
    static int32_t Delete(Number index, const void* key, uint32_t record) {          \
        return ZB_CHECK(F##KDEL, index, key, record);                                \
    }                                                                                \
    static int32_t Make(int16_t data, Number index, void** key) {                    \
        return ZB_CHECK(F##KMAKE, data, index, key);                                 \
    }

// What the families of one index a file share besides.
#define ZB_FILE_CALLS(F, InfoRecord)                                                     \
    using Number = int16_t;                                                              \
    using Info = InfoRecord;                                                             \
    static int32_t Open(uint16_t* index, const char* path, uint16_t mode) {              \
        return ZB_CHECK(F##OPENX, index, path, mode);                                    \
    }                                                                                    \
    static int32_t Close(Number index) { return F##CLOSE(index); }                       \
    static constexpr const char* CloseName = #F "CLOSE";                                 \
    static void Describe(Number index, Info* info) { ZB_CHECK(F##INFO, index, info); }   \
    static void Expression(Number index, char* text) { ZB_CHECK(F##EXPR, index, text); } \
    ZB_KEY_CALLS(F)

struct NdxCalls {
    ZB_FILE_CALLS(ZBDN, ZbNdxInfo)
    static bool IsText(const Info& info) { return info.keyType == 'C'; }
    static size_t FromNumber(Number, void* key, double value) {
        ZB_CHECK(ZBDNKNUM, key, value);
        return 8;
    }
    static size_t FromDate(void* key, const char* text) {
        ZB_CHECK(ZBDNKDATE, key, text, 4);
        return 8;
    }
};

struct NtxCalls {
    ZB_FILE_CALLS(ZBDC, ZbNtxInfo)
    static bool IsText(const Info&) { return true; }
    static size_t FromNumber(Number index, void* key, double value) {
        ZB_CHECK(ZBDCKNUM, index, key, value);
        return std::strlen(static_cast<char*>(key));
    }
    static size_t FromDate(void* key, const char* text) {
        ZB_CHECK(ZBDCKDATE, key, text, 4);
        return 8;
    }
};

struct IdxCalls {
    ZB_FILE_CALLS(ZBDI, ZbIdxInfo)
    static bool IsText(const Info& info) { return info.keyType == 'C' || info.keyType == 'L'; }
    static size_t FromNumber(Number, void* key, double value) {
        ZB_CHECK(ZBDIKNUM, key, value);
        return 8;
    }
    static size_t FromDate(void* key, const char* text) {
        ZB_CHECK(ZBDIKDATE, key, text, 4);
        return 8;
    }
};

struct MdxCalls {
    using Number = int16_t;
    static int32_t Close(Number file) { return ZBDMCLOSE(file); }
};

struct TagCalls {
    using Number = int32_t;
    using Info = ZbMdxTagInfo;
    static int32_t Close(Number tag) { return ZBDMTCLOSE(tag); }
    static constexpr const char* CloseName = "ZBDMTCLOSE";
    static void Describe(Number tag, Info* info) { ZB_CHECK(ZBDMTINFO, tag, info); }
    static void Expression(Number tag, char* text) { ZB_CHECK(ZBDMTEXPR, tag, text); }
    ZB_KEY_CALLS(ZBDM)
    static bool IsText(const Info& info) { return info.keyType == 'C'; }
    static size_t FromNumber(Number, void* key, double value) {
        ZB_CHECK(ZBDMKNUM, key, value);
        return 12;
    }
    static size_t FromDate(void* key, const char* text) {
        ZB_CHECK(ZBDMKDATE, key, text, 4);
        return 8;
    }
};

#undef ZB_FILE_CALLS
#undef ZB_KEY_CALLS

}  // namespace detail

template <class Calls>
class KeyRange;

// What all indexes do: NdxFile, NtxFile, IdxFile and Tag. The index has a position,
// which finds and steps move.
template <class Calls>
class Index {
  public:
    using Number = typename Calls::Number;
    using Info = typename Calls::Info;

    Number handle() const { return handle_.get(); }

    // Closes the index, or detaches the tag, and says what came of it.
    void close() {
        detail::Check(Calls::Close(handle()), Calls::CloseName);
        handle_.release();
    }

    Info info() const {
        Info info{};
        Calls::Describe(handle(), &info);
        return info;
    }
    std::string expression() const {
        char text[256];
        Calls::Expression(handle(), text);
        return text;
    }
    size_t keyLength() const { return keyLength_; }

    // Keys in the form that the index stores: of a text as it is, a number (KNUM), a
    // date (KDATE), and of the record in memory by the index's expression (KMAKE).
    std::string key(double value) const {
        char bytes[KeyRoom] = {};
        size_t length = Calls::FromNumber(handle(), bytes, value);
        return {bytes, length};
    }
    std::string key(Date date) const {
        char bytes[KeyRoom] = {};
        size_t length = Calls::FromDate(bytes, detail::Digits(date).text);
        return {bytes, length};
    }
    std::string key(const DataFile& data) const {
        void* made = nullptr;
        Calls::Make(data.handle(), handle(), &made);
        detail::Block owner(made);
        auto* bytes = static_cast<const char*>(made);
        return isText_ ? std::string(bytes) : std::string(bytes, keyLength_);
    }

    // Moves: each gives the entry that is the position now.
    Entry top() { return Ask(Calls::Top); }
    Entry bottom() { return Ask(Calls::Bottom); }
    Entry next() { return Ask(Calls::Next); }
    Entry previous() { return Ask(Calls::Previous); }
    Entry current() { return Ask(Calls::Current); }

    // Searches (KFIND). Found comes also for a key below all others, with the first
    // entry: compare the key that comes back where that matters.
    Entry find(std::string_view key, Find mode = Find::First, uint32_t record = 0) {
        Load(key);
        record_ = record;
        return Told(Calls::Search(handle(), buffer_.get(), &record_, static_cast<int16_t>(mode)));
    }
    Entry find(double value) { return find(key(value)); }
    Entry find(Date date) { return find(key(date)); }

    // Add and delete a key of a record (KADD, KDEL). The position stays. erase() tells
    // by Found that the entry is gone; zb.h tells what the rest means.
    void add(std::string_view key, uint32_t record) {
        Load(key);
        Calls::Add(handle(), buffer_.get(), record);
    }
    Answer erase(std::string_view key, uint32_t record) {
        Load(key);
        return static_cast<Answer>(Calls::Delete(handle(), buffer_.get(), record));
    }

    // All entries in order, from the first: a walk by top() and next(). Entries may be
    // added and deleted meanwhile.
    KeyRange<Calls> entries() { return KeyRange<Calls>(*this); }

  protected:
    explicit Index(Number handle) : handle_(handle), buffer_(new char[KeyRoom]()) { Learn(); }

    // Reads again what the form of a key depends on.
    void Learn() {
        Info info = this->info();
        keyLength_ = static_cast<size_t>(info.keyLength);
        isText_ = Calls::IsText(info);
    }

  private:
    using Owner = detail::Handle<Calls>;
    static constexpr size_t KeyRoom = 264;  // more than the longest key of any family

    // Puts a key into the buffer that the calls read. An index whose keys count in
    // full length gets its texts filled with blanks.
    void Load(std::string_view key) {
        size_t length = key.size() < KeyRoom - 1 ? key.size() : KeyRoom - 1;
        std::memcpy(buffer_.get(), key.data(), length);
        if constexpr (std::is_same_v<Calls, detail::IdxCalls>) {
            for (; length < keyLength_; length++) buffer_[length] = isText_ ? ' ' : '\0';
        }
        std::memset(buffer_.get() + length, 0, KeyRoom - length);
    }

    Entry Ask(int32_t (*call)(Number, void*, uint32_t*)) {
        return Told(call(handle(), buffer_.get(), &record_));
    }

    Entry Told(int32_t code) const {
        return {static_cast<Answer>(code), {buffer_.get(), keyLength_}, record_};
    }

    Owner handle_;
    std::unique_ptr<char[]> buffer_;
    size_t keyLength_ = 0;
    uint32_t record_ = 0;
    bool isText_ = true;
};

// The walk of Index::entries().
template <class Calls>
class KeyRange {
  public:
    class Iterator {
      public:
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;

        Iterator() = default;
        const Entry& operator*() const { return entry_; }
        const Entry* operator->() const { return &entry_; }
        Iterator& operator++() {
            entry_ = index_->next();
            // An NDX index steps nowhere when its first entry, the position, has gone.
            if (std::is_same_v<Calls, detail::NdxCalls> && entry_.answer == Answer::Near &&
                index_->current().answer == Answer::Near)
                entry_ = index_->top();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const {
            return entry_.answer == Answer::End || entry_.answer == Answer::Empty;
        }

      private:
        friend class KeyRange;
        explicit Iterator(Index<Calls>& index) : index_(&index), entry_(index.top()) {}
        Index<Calls>* index_ = nullptr;
        Entry entry_;
    };

    Iterator begin() const { return Iterator(*index_); }
    std::default_sentinel_t end() const { return {}; }

  private:
    friend class Index<Calls>;
    explicit KeyRange(Index<Calls>& index) : index_(&index) {}
    Index<Calls>* index_;
};

// An index in a file of its own.
template <class Calls>
class IndexFile : public Index<Calls> {
  public:
    explicit IndexFile(const std::string& path, int mode = 0) : Index<Calls>(Open(path, mode)) {}

  private:
    static int16_t Open(const std::string& path, int mode) {
        uint16_t index;
        Calls::Open(&index, path.c_str(), static_cast<uint16_t>(mode));
        return static_cast<int16_t>(index);
    }
};

// create() makes an empty index (CREATE), build() one with the keys of all records
// (INDEX). `type` is the letter that zb.h tells, with what may be added to it.
class NdxFile : public IndexFile<detail::NdxCalls> {
  public:
    using IndexFile::IndexFile;
    static void create(const std::string& path, int type, std::string_view expression,
                       int16_t keyLength = 0) {
        ZB_CHECK(ZBDNCREATE, path.c_str(), static_cast<int16_t>(type), detail::Writable(expression).data(),
                 keyLength);
    }
    static void build(DataFile& data, const std::string& path, int type, std::string_view expression,
                      int16_t keyLength = 0) {
        ZB_CHECK(ZBDNINDEX, data.handle(), path.c_str(), static_cast<int16_t>(type),
                 detail::Writable(expression).data(), keyLength);
    }
};

class NtxFile : public IndexFile<detail::NtxCalls> {
  public:
    using IndexFile::IndexFile;
    static void create(const std::string& path, int type, std::string_view expression, int16_t keyLength = 0,
                       int16_t decimals = 0) {
        ZB_CHECK(ZBDCCREATE, path.c_str(), static_cast<int16_t>(type), detail::Writable(expression).data(),
                 keyLength, decimals);
    }
    static void build(DataFile& data, const std::string& path, int type, std::string_view expression,
                      int16_t keyLength = 0, int16_t decimals = 0) {
        ZB_CHECK(ZBDCINDEX, data.handle(), path.c_str(), static_cast<int16_t>(type),
                 detail::Writable(expression).data(), keyLength, decimals);
    }
};

// The file doesn't tell its keys' type: say it where it isn't 'C' (ZBDIKTYPE).
class IdxFile : public IndexFile<detail::IdxCalls> {
  public:
    explicit IdxFile(const std::string& path, int mode = 0, char type = 'C') : IndexFile(path, mode) {
        ZB_CHECK(ZBDIKTYPE, handle(), type);
        Learn();
    }
    static void create(const std::string& path, int type, std::string_view expression,
                       int16_t keyLength = 0) {
        ZB_CHECK(ZBDICREATE, path.c_str(), static_cast<uint16_t>(type), detail::Writable(expression).data(),
                 keyLength);
    }
    static void build(DataFile& data, const std::string& path, int type, std::string_view expression,
                      int16_t keyLength = 0) {
        ZB_CHECK(ZBDIINDEX, data.handle(), path.c_str(), static_cast<uint16_t>(type),
                 detail::Writable(expression).data(), keyLength);
    }
};

// An attached tag of an MDX file. It must go before its file does.
class Tag : public Index<detail::TagCalls> {
  private:
    friend class MdxFile;
    explicit Tag(int32_t tag) : Index(tag) {}
};

// An open MDX file.
class MdxFile {
  public:
    // Creates a file without tags; blocks of `multiplier` times 512 bytes
    // (ZBDMCREATEX). Mind what zb.h says about today's date.
    static void create(const std::string& path, int16_t multiplier = 2, int option = 0) {
        ZB_CHECK(ZBDMCREATEX, path.c_str(), multiplier, static_cast<uint16_t>(option));
    }
    explicit MdxFile(const std::string& path, int mode = 0) {
        int16_t file;
        sizeFits_ = ZB_CHECK(ZBDMOPENX, &file, path.c_str(), static_cast<uint16_t>(mode)) != ZB_WarnFileSize;
        handle_ = Owner(file);
    }

    int16_t handle() const { return handle_.get(); }
    bool sizeFits() const { return sizeFits_; }
    void close() {
        ZB_CHECK(ZBDMCLOSE, handle());
        handle_.release();
    }
    uint16_t tagCount() const {
        ZbMdxInfo info{};
        ZB_CHECK(ZBDMINFO, handle(), &info);
        return info.tagCount;
    }

    // Makes an empty tag (ZBDMTNEW), one with the keys of all records (ZBDMTINDEX).
    void create(const std::string& tag, int type, std::string_view expression, int32_t keyLength = 0) {
        ZB_CHECK(ZBDMTNEW, handle(), tag.c_str(), static_cast<uint32_t>(type),
                 detail::Writable(expression).data(), keyLength);
    }
    void build(DataFile& data, const std::string& tag, int type, std::string_view expression,
               int32_t keyLength = 0) {
        ZB_CHECK(ZBDMTINDEX, data.handle(), static_cast<uint16_t>(handle()), tag.c_str(),
                 static_cast<uint32_t>(type), detail::Writable(expression).data(), keyLength);
    }
    void erase(const std::string& tag) { ZB_CHECK(ZBDMTERASE, handle(), tag.c_str()); }

    // Attach a tag by its name, or by its number from 1 (ZBDMTUSE, ZBDMTUSEX).
    Tag tag(const std::string& name) {
        int32_t tag;
        ZB_CHECK(ZBDMTUSE, &tag, static_cast<uint16_t>(handle()), name.c_str());
        return Tag(tag);
    }
    Tag tag(int16_t number) {
        int32_t tag;
        ZB_CHECK(ZBDMTUSEX, &tag, static_cast<uint16_t>(handle()), number);
        return Tag(tag);
    }

  private:
    using Owner = detail::Handle<detail::MdxCalls>;
    Owner handle_;
    bool sizeFits_ = true;
};

// ---- expressions

// What an expression came to on the record in memory (ZBDXEVAL).
class Value {
  public:
    // 'C', 'D', 'L', 'M', 'N' or 'F'; a blank for an empty expression.
    char type() const { return static_cast<char>(result_.type); }
    // The value's bytes: of types C and D the text.
    std::string_view text() const {
        return {static_cast<const char*>(result_.value), static_cast<size_t>(result_.length)};
    }
    // The number of types N and F; ZB_ErrExpression for others.
    double number() const {
        if (type() != 'N' && type() != 'F') detail::Throw(ZB_ErrExpression, "ZBDXEVAL");
        double value;
        std::memcpy(&value, result_.value, sizeof value);
        return value;
    }

  private:
    friend Value evaluate(const DataFile& data, std::string_view expression);
    ZbEvalResult result_{};
    detail::Block owner_;
};

inline Value evaluate(const DataFile& data, std::string_view expression) {
    Value value;
    ZB_CHECK(ZBDXEVAL, data.handle(), detail::Writable(expression).data(), &value.result_);
    value.owner_.reset(value.result_.value);
    return value;
}

#undef ZB_CHECK

}  // namespace zb

#endif
