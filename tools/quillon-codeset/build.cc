#include <cstdlib>
#include <cstring>

#include "foundation/descriptor.h"
#include "tools/quillon-codeset/charset.h"
#include "tools/quillon-codeset/commands.h"
#include "tools/quillon-codeset/output_file.h"
#include "tools/quillon-codeset/table_builder.h"

namespace quillon {

int buildTable(const BuildOptions& options) {
  const char* const charset = options.charset.c_str();
  const Charset source(options.charset);
  if (!source.isOpen()) return fail("the C library has no charset %s; iconv -l lists them", charset);
  TableBuilder builder(source);
  const std::string problem = builder.build(options.name);
  if (!problem.empty()) return fail("no table for %s: it %s", charset, problem.c_str());
  if (builder.leftOut() > 0 && !options.partial) {
    return fail("no table for %s: it cannot hold %d of the characters, such as %s; --partial makes it without them",
                charset, builder.leftOut(), builder.firstLeftOut().c_str());
  }
  const std::string& path = options.output.empty() ? options.name : options.output;
  OutputFile file(path);
  int error = file.error();
  if (error == 0) error = writeAll(file.descriptor(), builder.image());
  if (error == 0) error = file.finish();
  return error == 0 ? EXIT_SUCCESS : fail("cannot write %s: %s", path.c_str(), std::strerror(error));
}

}  // namespace quillon
