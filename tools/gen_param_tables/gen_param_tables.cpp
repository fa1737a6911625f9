// Prints the README's parameter tables as markdown, generated from the
// tables the library answers its hosts with. With `--update FILE` it
// rewrites the generated section of FILE in place instead.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "param_tables_md.hpp"

int main(int argc, char** argv) {
    const std::string tables = tervak_tools::param_tables_markdown();
    if (argc == 1) {
        std::cout << tables;
        return 0;
    }
    if (argc != 3 || std::string(argv[1]) != "--update") {
        std::cerr << "usage: gen_param_tables [--update README.md]\n";
        return 2;
    }
    std::ifstream in(argv[2], std::ios::binary);
    if (!in) {
        std::cerr << "cannot read " << argv[2] << "\n";
        return 1;
    }
    std::stringstream ss;
    ss << in.rdbuf();
    std::string doc = ss.str();
    std::size_t from = 0, to = 0;
    if (!tervak_tools::tables_region(doc, from, to)) {
        std::cerr << argv[2] << " has no generated section (the lines\n"
                  << tervak_tools::kTablesBegin << "\n"
                  << tervak_tools::kTablesEnd << "\nmark it)\n";
        return 1;
    }
    doc.replace(from, to - from, tables);
    std::ofstream out(argv[2], std::ios::binary | std::ios::trunc);
    out << doc;
    return out ? 0 : 1;
}
