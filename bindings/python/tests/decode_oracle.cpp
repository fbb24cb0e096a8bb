// The C++ layer's reply decoder and argument checks (zanth::dynamic::DecodeReply and CheckArgs),
// for the Python package's tests to compare their own with, case by case. Reads lines
//   EXPORT MODE HEXFRAME                  (MODE "-" for none)
//   CHECK EXPORT NAME=i:NUMBER NAME=s:HEX ...
// and writes one JSON object a line: for a frame the code, result, ok, raw and the outputs by the
// header's names (numbers as numbers, texts and bytes as hex); for a check "ok", or the
// parameter the C++ layer refused. The library is never loaded.

#define ZANTH_HPP_LOAD_AT_RUNTIME
#include "zanth.hpp"

#include <iostream>
#include <sstream>
#include <string>

namespace {

std::string Hex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : bytes) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

std::string Unhex(const std::string& hex) {
    std::string out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        out += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return out;
}

}  // namespace

int main() {
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream in(line);
        std::string name, mode, hex;
        in >> name;
        if (name == "CHECK") {
            std::string exportName, item;
            in >> exportName;
            zanth::Args args;
            while (in >> item) {
                size_t eq = item.find('=');
                std::string key = item.substr(0, eq), value = item.substr(eq + 3);
                if (item.compare(eq + 1, 2, "i:") == 0) {
                    args[key] = static_cast<int64_t>(std::stoll(value));
                } else {
                    args[key] = Unhex(value);
                }
            }
            try {
                zanth::dynamic::CheckArgs(exportName, args);
                std::cout << "{\"ok\":true}\n";
            } catch (const zanth::ArgumentError& e) {
                std::cout << "{\"ok\":false,\"param\":\"" << e.param() << "\",\"why\":\""
                          << Hex(e.why()) << "\"}\n";
            }
            continue;
        }
        in >> mode >> hex;
        zanth::Args args;
        if (mode != "-") args["mode"] = static_cast<int64_t>(std::stoll(mode));
        std::ostringstream out;
        try {
            zanth::dynamic::Decoded d = zanth::dynamic::DecodeReply(name, Unhex(hex), args);
            out << "{\"code\":" << d.code << ",\"result\":" << d.result
                << ",\"ok\":" << (d.ok ? "true" : "false") << ",\"raw\":" << (d.raw ? "true" : "false")
                << ",\"outputs\":{";
            bool first = true;
            for (const auto& [key, value] : d.outputs) {
                out << (first ? "" : ",") << "\"" << key << "\":";
                first = false;
                if (const int64_t* i = std::get_if<int64_t>(&value)) {
                    out << *i;
                } else if (const std::string* s = std::get_if<std::string>(&value)) {
                    out << "\"" << Hex(*s) << "\"";
                } else {
                    const zanth::Bytes& b = std::get<zanth::Bytes>(value);
                    out << "\"" << Hex(std::string(b.begin(), b.end())) << "\"";
                }
            }
            out << "}}";
        } catch (const std::exception& e) {
            out << "{\"error\":\"" << Hex(e.what()) << "\"}";
        }
        std::cout << out.str() << "\n";
    }
    return 0;
}
