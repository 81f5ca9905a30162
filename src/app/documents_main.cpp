// Writes one of the documents that are installed beside the program. Runs when the program is built.
#include <cstdio>
#include <cstring>
#include <fstream>

#include "app/documents.h"
#include "app/program.h"

int main(int argc, char** argv) {
  static constexpr struct {
    const char* name;
    std::string (*make)();
  } documents[] = {{"manual", orvane::manual_page},
                   {"completion", orvane::bash_completion},
                   {"options", orvane::option_list}};
  orvane::register_everything();
  if (argc == 3) {
    for (const auto& document : documents) {
      if (std::strcmp(argv[1], document.name) != 0) continue;
      std::ofstream file(argv[2], std::ios::binary);
      file << document.make() << std::flush;
      if (!file) std::perror(argv[2]);
      return file ? 0 : 1;
    }
  }
  std::fprintf(stderr, "usage: %s manual|completion|options FILE\n", argv[0]);
  return 1;
}
