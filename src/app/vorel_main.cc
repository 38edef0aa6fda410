#include <string>
#include <vector>

#include "app/cli.h"

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  return vorel::app::RunCli(arguments);
}
