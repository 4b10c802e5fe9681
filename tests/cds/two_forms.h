#ifndef QUILLON_TESTS_CDS_TWO_FORMS_H_
#define QUILLON_TESTS_CDS_TWO_FORMS_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cds/CdsReader.h"
#include "cds/EventMaker.h"
#include "src/adapters/logfile/common/LogDriver.h"
#include "src/adapters/logfile/common/utf8_text.h"
#include "src/adapters/logfile/event/Attributes.h"
#include "src/adapters/logfile/event/EventWriter.h"
#include "src/adapters/logfile/match/Matcher.h"
#include "tests/match/support/format_list.h"
#include "tests/match/support/random.h"

class FormatSpec;

namespace quillon {

/// Both ways from a message to its event: the adapter makes it ready, or sends attributes and the server, which has
/// nothing but the class definitions, makes it.
class TwoForms {
 public:
  /// From the text of a format file, tried in matching order.
  explicit TwoForms(std::string_view formats);

  /// Why the server has no classes; empty when it has.
  const std::string& failure() const { return failure_; }
  /// The text was none of a format file: not all that a generator makes is.
  bool isRefused() const { return isRefused_; }
  const std::string& definitions() const { return definitions_; }

  /// What is different between the two events of `message`; empty when nothing is, or no format binds it.
  std::string difference(std::string_view message);

  /// The server's event of the message that was bound last.
  const std::string& latest() const { return latest_; }
  std::size_t bound() const { return bound_; }

  /// What the adapter sends of it, with the number of its class.
  const std::vector<NamedValue>& sent() const { return sent_; }
  std::uint32_t eventId() const { return eventId_; }

 private:
  std::string adapters(const Match& match, const EventSource& source);
  std::string plain(std::string_view message, const Match& match);
  std::string servers(const Match& match, const EventSource& source);

  LogDriver driver_;
  std::vector<FormatSpec*> formats_;
  bool isRefused_ = false;
  std::string failure_;
  std::string definitions_;
  std::optional<Matcher> matcher_;
  std::shared_ptr<const Attributes> attributes_;
  std::optional<EventWriter> writer_;
  std::optional<EventMaker> maker_;
  std::optional<MessageDecoder> decoder_;
  std::string latest_;
  std::vector<NamedValue> sent_;
  std::uint32_t eventId_ = 0;
  std::size_t bound_ = 0;
};

/// An event as the adapter writes it in its plain form.
std::string plainText(const MadeEvent& event);

/// `formats` as a format file with slots of every kind: odd names, constants that look like class definitions, PRINTFs
/// of each other, slots that are inherited.
std::string withOddSlots(const FormatList& formats, Random& random);

}  // namespace quillon

#endif  // QUILLON_TESTS_CDS_TWO_FORMS_H_
