#include "tests/cds/two_forms.h"

#include <algorithm>

#include "src/adapters/logfile/common/FormatReader.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/SysLogMsg.h"
#include "src/adapters/logfile/event/EventForms.h"

namespace quillon {
namespace {

/// Of a source; the plain definition has fixed words instead.
const EventSource kSource = {.defaultText = "a 'default'", .label = "", .fileName = "/var/log/\xE9%s"};

/// Nothing comes twice in a block but by inheritance; nothing in it begins a comment or is a keyword.
constexpr std::string_view kNames[] = {"host", "a=b",  "=", ";",      "$V2", "_event_id", "CLASS",
                                       "x\\",  "\xE9", "#", "SELECT", "$",   "`'",        "END;"};

constexpr std::string_view kWords[] = {"WARNING", "C:\\", "\\", "a\\\\", ";", "$V2", "$1x", "\xFF\xE4", "="};

/// Pieces of texts in quotes.
constexpr std::string_view kPieces[] = {"\\\"",   "\\\"",    "\\\\", "\\\n", "\n",   ";",    ";\n",    "    ",
                                        " = ",    "$V2",     ", ",   ")",    "%",    "s",    "%d",     "END\n",
                                        "CLASS ", "PRINTF(", "x",    "\xC3", "\xA9", "word", "  MAP\n"};

std::string text(Random& random, std::size_t arguments) {
  std::string text = "\"";
  for (std::size_t pieces = random.below(6); pieces > 0; --pieces) text += random.pick(kPieces);
  for (; arguments > 0; --arguments) (text += "%s") += random.pick(kPieces);
  return text += '"';
}

}  // namespace

std::string plainText(const MadeEvent& event) {
  std::string text = "EVENT " + std::string(event.className);
  for (const NamedValue& slot : event.slots) ((((text += " `") += slot.name) += "=") += slot.value) += "'";
  return text + " END";
}

TwoForms::TwoForms(std::string_view formats) {
  CollectedReports reports;
  FormatReader reader(reports);
  if (!reader.readText(formats, "formats", driver_)) {
    isRefused_ = true;
    failure_ = reports.reports.front().text;
    return;
  }
  driver_.orderFmts();
  formats_ = driver_.listed();
  const std::optional<std::string> definitions = classDefinitions(driver_);
  if (!definitions) {
    failure_ = "no class definitions";
    return;
  }
  definitions_ = *definitions;
  const CdsReading reading = readCds(definitions_, platformCodeset());
  for (const CdsFault& fault : reading.faults) {
    failure_ += std::to_string(fault.line) + ":" + std::to_string(fault.column) + ": " + fault.text + "\n";
  }
  if (!reading) return;
  matcher_.emplace(FormatSet::make(driver_));
  attributes_ = Attributes::make(driver_);
  writer_.emplace(EventForms::make(driver_, EventForm::kText, EventSlots::kMapped));
  maker_.emplace(reading.classes);
  decoder_.emplace();
}

std::string TwoForms::difference(std::string_view message) {
  message = decoder_->decode(message.substr(0, message.find('\0')));
  const Match* const match = matcher_->bind(message);
  if (!match) return "";
  ++bound_;
  const bool isPlain = bound_ % 2 == 0 && decoder_->changesNothing();
  const EventSource source = isPlain ? EventSource() : kSource;
  const std::string adapter = adapters(*match, source);
  const std::string server = latest_ = servers(*match, source);
  const std::string definition = isPlain ? plain(message, *match) : adapter;
  if (adapter == server && adapter == definition) return "";
  return "adapter " + printable(adapter) + "\nserver  " + printable(server) + "\nplain   " + printable(definition);
}

std::string TwoForms::adapters(const Match& match, const EventSource& source) {
  writer_->setSource(source);
  std::string line(writer_->begin(match.place, match.values) + EventWriter::kStride, '\0');
  line.resize(static_cast<std::size_t>(writer_->write(line.data()) - line.data()));
  return line;
}

/// As the entries themselves have it.
std::string TwoForms::plain(std::string_view message, const Match& match) {
  FormatSpec& format = *formats_[match.place];
  SysLogMsg text(std::string(message).c_str());
  if (!format.bindConverted(text)) return "not bound";
  std::string slots;
  for (MsgMapEntry* entry : format.getMaps()) {
    if (entry->mapped())
      ((((slots += " `") += entry->getName().view()) += "=") += entry->svalue(&format).view()) += "'";
  }
  return "EVENT " + std::string(format.getName().view()) + slots + " END";
}

std::string TwoForms::servers(const Match& match, const EventSource& source) {
  std::vector<NamedValue>& sent = sent_;
  attributes_->list(match.place, match.values, source, sent);
  eventId_ = attributes_->eventId(match.place);
  if (maker_->make(eventId_, sent) != EventMaker::Result::kMade) return "none";
  if (maker_->event().eventId != match.eventId) return "another class";
  std::string text = plainText(maker_->event());
  std::reverse(sent.begin(), sent.end());  // in any order
  if (maker_->make(match.eventId, sent) != EventMaker::Result::kMade || plainText(maker_->event()) != text)
    return "moody";
  return text;
}

std::string withOddSlots(const FormatList& formats, Random& random) {
  std::string file;
  std::ptrdiff_t previous = -1;
  int number = 0;
  for (const Tokens& tokens : formats) {
    const auto variables = std::count_if(tokens.begin(), tokens.end(), isVariable);
    file += "FORMAT Block" + std::to_string(number);
    // One with fewer variables would not get all that a PRINTF that it gets may refer to.
    const bool follows = previous >= 0 && variables >= previous && random.chance(30);
    if (follows) file += " FOLLOWS Block" + std::to_string(number - 1);
    file += "\n" + joined(tokens) + "\n";
    std::vector<std::string> slots;
    for (std::string_view name : kNames) {
      if (random.chance(60)) continue;
      std::string line = random.chance(25) ? "-" : "";
      (line += name) += " ";
      const std::size_t kind = random.below(7);
      if (kind == 0) line += random.pick(kWords);
      if (kind == 1) line += text(random, 0);
      if (kind == 2) line += "DEFAULT";
      if (kind == 3) line += random.chance(50) ? "LABEL" : "FILENAME";
      if (kind >= 5 && !slots.empty()) {
        const std::string format = text(random, random.below(4));
        line += "PRINTF(" + format;
        for (std::size_t at = format.find("%s"); at < format.size(); at = format.find("%s", at + 2)) {
          line += ", " + random.pick(slots);
        }
        line += ")";
      } else if (kind >= 4) {
        line += variables > 0 ? "$" + std::to_string(1 + random.below(static_cast<std::size_t>(variables))) : "none";
      }
      file += line + "\n";
      slots.emplace_back(name);
    }
    file += "END\n";
    previous = variables;
    ++number;
  }
  return file;
}

}  // namespace quillon
