#include "src/adapters/logfile/event/Attributes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"

namespace quillon {
namespace {

/// What an entry that is selected gives to its slot, as its svalue() does.
std::string_view valueOf(long kind, int position, std::span<const std::string_view> values, const EventSource& source) {
  if (kind == defaultMap) return source.defaultText;
  if (kind == labelMap) return source.label;
  if (kind == filenameMap) return source.fileName;
  const bool hasValue = kind == varMap && position >= 1 && static_cast<std::size_t>(position) <= values.size();
  return hasValue ? values[static_cast<std::size_t>(position) - 1] : "???";
}

}  // namespace

std::shared_ptr<const Attributes> Attributes::make(const LogDriver& driver) {
  std::shared_ptr<Attributes> made(new Attributes);
  const std::vector<FormatSpec*> formats = driver.listed();
  made->formats_.reserve(formats.size() + 1);
  for (std::size_t i = 0; i < formats.size(); ++i) {
    const std::size_t id = driver.isInFileOrder() ? i : formats.size() - 1 - i;
    made->formats_.push_back({static_cast<std::uint32_t>(id), made->attributes_.size()});
    for (const MsgMapEntry* entry : formats[i]->getMaps()) {
      if (!entry->selected()) continue;
      made->attributes_.push_back({std::string(entry->getName().view()), entry->kind(), entry->position()});
    }
  }
  made->formats_.push_back({0, made->attributes_.size()});
  return made;
}

void Attributes::list(std::size_t format, std::span<const std::string_view> values, const EventSource& source,
                      std::vector<NamedValue>& out) const {
  out.clear();
  for (std::size_t i = formats_[format].attribute; i < formats_[format + 1].attribute; ++i) {
    const Attribute& attribute = attributes_[i];
    out.push_back({attribute.name, valueOf(attribute.kind, attribute.position, values, source)});
  }
}

std::optional<std::string> classDefinitions(const LogDriver& driver) {
  std::vector<FormatSpec*> formats = driver.listed();
  if (!driver.isInFileOrder()) std::reverse(formats.begin(), formats.end());
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* const stream = open_memstream(&text, &size);
  if (!stream) throw std::bad_alloc();
  bool isWhole = true;
  int index = 0;
  for (FormatSpec* format : formats) {
    isWhole = isWhole && format->writeCds(stream, index++);
  }
  const bool isWritten = std::fclose(stream) == 0;
  const std::unique_ptr<char, decltype(&std::free)> owned(text, std::free);
  if (!isWritten) throw std::bad_alloc();
  if (!isWhole) return std::nullopt;
  return std::string(text, size);
}

}  // namespace quillon
