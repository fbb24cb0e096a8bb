#include "tools/cli/CardsCsv.h"

#include <fstream>
#include <stdexcept>

#include "tools/cli/Text.h"

namespace zanth::cli {
namespace {

constexpr size_t kFirstGenerationFields = 24;

// The add command's parameters a line gives, in order (mac and rspid aside).
const std::vector<model::Param>& Columns(int generation) {
    static std::vector<model::Param> columns[3];
    std::vector<model::Param>& c = columns[generation - 1];
    if (c.empty()) {
        std::optional<model::Export> e = model::Find(AddExport(generation, false));
        if (!e) throw std::logic_error("the API model has no " + AddExport(generation, false));
        for (const model::Param& p : e->params) {
            if (p.input && !p.mac && !p.rspid && !p.size) c.push_back(p);
        }
    }
    return c;
}

}  // namespace

std::string AddExport(int generation, bool rsp) {
    std::string name = std::string(rsp ? "Rsp" : "") + "AddModCardRecord";
    return generation == 1 ? name : name + std::to_string(generation);
}

std::string Describe(const BadLine& bad) {
    std::string where = "line " + std::to_string(bad.line);
    if (bad.column != 0) where += ", field " + std::to_string(bad.column) + " (" + bad.field + ")";
    return where + ": " + bad.why;
}

CardsFile ReadCards(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("can't read " + path.string());
    CardsFile file = ParseCards(in);
    if (in.bad()) throw std::runtime_error("can't read " + path.string());
    return file;
}

CardsFile ParseCards(std::istream& in) {
    CardsFile file;
    size_t number = 0;
    for (std::string text; std::getline(in, text);) {
        ++number;
        std::string_view line = Trim(text);
        if (line.empty() || line.front() == '#') continue;
        std::vector<std::string> fields = Split(line, ',');
        size_t n = fields.size();
        if (n < kFirstGenerationFields || n > kFirstGenerationFields + 2) {
            file.bad.push_back({number, 0, "", "expected 24 to 26 fields, found " + std::to_string(n)});
            continue;
        }
        CardLine card;
        card.line = number;
        card.generation = static_cast<int>(n - kFirstGenerationFields) + 1;
        const std::vector<model::Param>& columns = Columns(card.generation);
        std::optional<BadLine> bad;
        for (size_t k = 0; k < n && !bad; ++k) {
            const model::Param& p = columns.at(k);
            std::string value(Trim(fields[k]));
            if (p.kind == model::Kind::kInteger) {
                std::optional<int64_t> v = ParseInteger(value);
                if (!v) {
                    bad = BadLine{number, k + 1, p.name, "not a number: '" + value + "'"};
                } else {
                    card.args[p.name] = *v;
                }
            } else {
                // An empty card number or PIN is "0", as the library sends it.
                card.args[p.name] = value.empty() ? std::string("0") : value;
            }
        }
        if (!bad) {
            // Checked as the call would be, for the controller named later.
            Args call = card.args;
            call["mac"] = std::string("00:00:00");
            try {
                model::Check(AddExport(card.generation, false), call);
            } catch (const ArgError& e) {
                size_t column = 0;
                for (size_t k = 0; k < columns.size(); ++k) {
                    if (columns[k].name == e.param()) column = k + 1;
                }
                bad = BadLine{number, column, e.param(), e.why()};
            }
        }
        if (bad) {
            file.bad.push_back(*bad);
        } else {
            file.records.push_back(std::move(card));
        }
    }
    return file;
}

}  // namespace zanth::cli
