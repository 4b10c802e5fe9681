#include "src/adapters/logfile/common/LogDriver.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  LogDriver driver(argv[1], nullptr, 1);
  return driver.write_cds(nullptr) ? 0 : 1;
}
