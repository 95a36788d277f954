#include "json_lines.h"

#include <charconv>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "failure.h"
#include "zb.h"

namespace tool {
namespace {

using Json = nlohmann::json;

// Takes the members as the parser meets them: a tree of values would round numbers.
class Members : public nlohmann::json_sax<Json> {
  public:
    explicit Members(JsonLinesReader& rows) : reader(rows) {}

    std::string trouble;

    bool null() override { return Put("", false); }
    bool boolean(bool value) override { return Put(value ? "T" : "F", false); }
    bool number_integer(number_integer_t value) override { return Put(std::to_string(value), false); }
    bool number_unsigned(number_unsigned_t value) override { return Put(std::to_string(value), false); }
    bool number_float(number_float_t, const string_t& text) override { return Put(PlainNumber(text), false); }
    bool string(string_t& value) override { return Put(value, true); }
    bool binary(binary_t&) override { return Refuse(); }
    bool start_object(std::size_t) override { return ++depth == 1 || Refuse(); }
    bool key(string_t& value) override {
        member = value;
        return true;
    }
    bool end_object() override {
        --depth;
        return true;
    }
    bool start_array(std::size_t) override { return Refuse(); }
    bool end_array() override { return true; }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        if (trouble.empty()) trouble = "the line is no JSON";
        return false;
    }

  private:
    bool Put(std::string value, bool isText) {
        if (depth != 1) return Refuse();
        reader.Put(member, std::move(value), isText);
        return true;
    }
    bool Refuse() {
        trouble = depth == 0 ? "the line is no JSON object"
                             : "'" + member + "' is a list or an object, which no field can hold";
        return false;
    }

    JsonLinesReader& reader;
    std::string member;
    int depth = 0;
};

}  // namespace

std::string PlainNumber(const std::string& number) {
    constexpr int kFarthest = 300;
    size_t mark = number.find_first_of("eE");
    if (mark == std::string::npos) return number;
    int exponent = 0;
    size_t start = mark + (number[mark + 1] == '+' ? 2 : 1);
    auto result = std::from_chars(number.data() + start, number.data() + number.size(), exponent);
    if (result.ec != std::errc() || exponent > kFarthest || exponent < -kFarthest) return number;
    std::string sign = number[0] == '-' ? "-" : "";
    std::string digits = number.substr(sign.size(), mark - sign.size());
    size_t point = std::min(digits.find('.'), digits.size());
    if (point < digits.size()) digits.erase(point, 1);
    int place = static_cast<int>(point) + exponent;
    if (place <= 0) {
        digits.insert(0, static_cast<size_t>(1 - place), '0');
        place = 1;
    }
    auto whole = static_cast<size_t>(place);
    if (digits.size() < whole) digits.append(whole - digits.size(), '0');
    std::string fraction = digits.substr(whole);
    digits.resize(whole);
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
    fraction.erase(fraction.find_last_not_of('0') + 1);
    return sign + digits + (fraction.empty() ? "" : "." + fraction);
}

JsonLinesReader::JsonLinesReader(FILE* input, const std::string& fileName) : file(input), title(fileName) {}

JsonLinesReader::~JsonLinesReader() { std::free(buffer); }

void JsonLinesReader::Put(const std::string& member, std::string value, bool isText) {
    auto [place, isNew] = places.emplace(member, names.size());
    if (isNew) {
        names.push_back(member);
        current->emplace_back();
        texts.push_back(false);
    }
    (*current)[place->second] = std::move(value);
    texts[place->second] = isText;
}

bool JsonLinesReader::Next(std::vector<std::string>& row) {
    ssize_t length;
    while ((length = getline(&buffer, &room, file)) >= 0) {
        taken += static_cast<uint64_t>(length);
        ++lines;
        std::string_view text(buffer, static_cast<size_t>(length));
        if (lines == 1 && text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
        if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) continue;
        rowLine = lines;
        row.assign(names.size(), "");
        texts.assign(names.size(), false);
        current = &row;
        Members members(*this);
        if (!Json::sax_parse(text, &members))
            throw Failure(Exit::damaged, title + ", line " + std::to_string(lines) + ": " + members.trouble);
        return true;
    }
    if (std::ferror(file) != 0) throw CodeFailure(ZB_ErrRead, title);
    return false;
}

}  // namespace tool
