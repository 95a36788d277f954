// The same in C++.
#include <iostream>
#include <zb.hpp>

int main() {
    zb::Library library;
    zb::DataFile::create("cpp.dbf", {{"NAME", zb::Type::Character, 10}});
    zb::DataFile data("cpp.dbf");
    data["NAME"].put("installed");
    std::cout << "record " << data.append() << '\n';
}
