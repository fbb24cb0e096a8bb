#pragma once
// The cards CSV (docs/cards-csv.md): one cardholder record a line, the arguments of the add
// command in the header's order. Its columns are the add commands' parameters as the API model
// lists them, and each line is checked by the model as the call would be.

#include <filesystem>
#include <istream>
#include <string>
#include <vector>

#include "tools/cli/Api.h"

namespace zanth::cli {

struct CardLine {
    size_t line = 0;     // 1 for the file's first line
    int generation = 3;  // 1, 2 or 3: a line of 24, 25 or 26 fields
    Args args;           // the add command's arguments, but mac and rspid
};

struct BadLine {
    size_t line = 0;
    size_t column = 0;   // 1 for the first field; 0: the line as a whole
    std::string field;   // the parameter's name
    std::string why;
};

struct CardsFile {
    std::vector<CardLine> records;
    std::vector<BadLine> bad;
};

// Throws std::runtime_error when the file can't be read.
CardsFile ReadCards(const std::filesystem::path& path);
CardsFile ParseCards(std::istream& in);

// The add command of a generation: AddModCardRecord, 2 or 3, or its Rsp form.
std::string AddExport(int generation, bool rsp);

std::string Describe(const BadLine& bad);

}  // namespace zanth::cli
