#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"

/// Writes the class definitions of a format file and of a format that is made here: its memory comes from this program
/// and from the library, and goes back from either.
int main(int argc, char** argv) {
  if (argc != 2) return 2;
  LogDriver driver(argv[1], nullptr, 1);
  auto* const format = new FormatSpec("Consumer");
  format->setFmtStr("%s+ from here");
  format->addSlot(MsgMapEntry::create(format, "where", varMap)->addRule("$1", format));
  driver.addFormatSpec(format);
  qlList<FormatSpec*> formats;
  for (FormatSpec* spec : driver.getFormats()) formats(spec);
  formats.clear();
  delete MsgMapEntry::create(format, "unused", constMap);
  return driver.write_cds(nullptr) ? 0 : 1;
}
