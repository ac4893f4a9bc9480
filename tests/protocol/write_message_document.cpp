// Writes docs/messages.md anew: write_message_document FILE.
#include <fstream>
#include <iostream>

#include "tests/protocol/message_document.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: write_message_document FILE\n";
    return 2;
  }
  std::ofstream file(argv[1], std::ios::binary);
  file << nox::test::messageDocument();
  file.close();
  if (!file) {
    std::cerr << "cannot write " << argv[1] << "\n";
    return 1;
  }
  return 0;
}
