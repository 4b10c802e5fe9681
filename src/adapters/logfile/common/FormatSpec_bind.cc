// Binding: which text each field of a format takes from a message, if the format describes it at all. What is here is
// the definition. The engine (match/) is fast and must give the same; whoever changes one changes what format files
// mean.
//
// Take the format "%s: %s* in %s" and the message "sshd: error in file in core".
//
// Its components are three fields and what stands between them: "%s", ":", " ", "%s*", " ", "in", " ", "%s". What can
// end a field is known before: ":" for the first, the next constant of all, "in", for the star, nothing for the last.
//
//   steps  The cursor stands at the start. The first field has 0 steps; it makes that 1, as a field with a bound does,
//          and ends before the first ":": $1 is "sshd". ":" and the blank match.
//          The star takes words up to the first "in": $2 is "error", its steps are 1. " ", "in", " " match.
//          The last field takes one word: $3 is "file". But the message goes on, so this is a failure.
//   back   The field where it failed has no other end (its steps are -1: nothing bounds it). The field before it, the
//          star, has steps of 1, so it can be asked for one more: the cursor goes back to where the star began, and it
//          runs on over one "in": $2 is "error in file", its steps are 2.
//          " ", "in", " " match, $3 is "core", the message is at its end: bound.
//
//   limit  Each failure counts. After the 100th that was got over, the next one ends the bind; otherwise a line with
//          many occurrences would keep a format busy for as many attempts as there are ways to choose among them.
//   first  Going back past the field that failed stops before the first one: that is tried again only when it is itself
//          what failed. Format files in use rely on which messages they do not match.
//
// A format without variables has nothing to try again and nothing to tell: all its components pass, matched or not, and
// what decides is whether they have used the message up. So "abc def" binds "abc", and also the empty message.
//
// Cost: at most 101 passes over the message, for each format that is tried. There is no index over formats, and no look
// ahead: a format whose last word is missing is found out at its end. This is not a search for every way to divide the
// message: ways that only a later end of the first field would open are never seen.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "src/adapters/logfile/common/ConstComponent.h"
#include "src/adapters/logfile/common/FormatSpec.h"
#include "src/adapters/logfile/common/MsgMapEntry.h"
#include "src/adapters/logfile/common/NewlineComponent.h"
#include "src/adapters/logfile/common/StringComponent.h"
#include "src/adapters/logfile/common/SysLogMsg.h"
#include "src/adapters/logfile/common/diagnostics.h"
#include "src/adapters/logfile/common/utf8_text.h"

namespace {

constexpr int kMaxFailures = 100;  ///< That are got over.

/// What binding knows of one variable.
struct Attempt {
  qlList<FormatComponent*>::Iterator component;
  qlList<ConstComponent*>::Iterator bound;  ///< What bounds it.
  int start = -1;  ///< Bytes from the start of the message to where the field was first reached; -1 before.
  int steps = 0;   ///< Occurrences of the bound used up; not above 0 when there is no alternative.
  qlStrobj value;
};

/// Room for the variables of one bind, kept from one to the next: most formats do not match most messages, and should
/// not cost memory for trying.
std::vector<Attempt>& attemptsFor(int variables) {
  thread_local std::vector<Attempt> attempts;
  if (attempts.size() < static_cast<std::size_t>(variables)) attempts.resize(static_cast<std::size_t>(variables));
  return attempts;
}

/// What bounds the next field, and moves on. A format that was not read to its end has no bounds.
const ConstComponent* nextBound(qlList<ConstComponent*>::Iterator& bounds) {
  if (bounds == qlList<ConstComponent*>::Iterator()) return ConstComponent::none();
  const ConstComponent* const bound = *bounds;
  ++bounds;
  return bound;
}

}  // namespace

namespace quillon {

/// One message against one format. Goes through the components; when one fails, goes back to a field that can still
/// end later and goes on from there.
class Binding {
 public:
  Binding(FormatSpec& format, SysLogMsg& msg)
      : msg_(msg),
        variables_(format.numVars),
        attempts_(attemptsFor(variables_)),
        component_(format.components.begin()),
        bound_(format.lookahead.begin()) {
    for (int i = 0; i < variables_; ++i) attempt(i).start = -1, attempt(i).steps = 0;
    msg_.seek(msg_.beginning());
    msg_.forgetFound();
  }

  bool run() {
    while (component_ != Components()) {
      if (!matchNext() && !goBack()) return false;
    }
    return msg_.end();
  }

 private:
  using Components = qlList<FormatComponent*>::Iterator;

  Attempt& attempt(int variable) { return attempts_[static_cast<std::size_t>(variable)]; }

  StringComponent& field(int variable) { return static_cast<StringComponent&>(**attempt(variable).component); }

  /// Matches the component at hand and moves on to the next one. Without variables there is nothing to try again, and
  /// every component passes: what decides is whether the message is used up.
  bool matchNext() {
    FormatComponent& component = **component_;
    const bool isField = component.variable();
    const bool matched = isField ? matchField(component) : component.matches(msg_, ConstComponent::none(), ignored_);
    ++component_;
    if (variables_ == 0) return true;
    if (!matched || (component_ == Components() && !msg_.end())) return false;
    if (isField) attempt(variable_).steps = field(variable_).get_steps();
    return true;
  }

  bool matchField(FormatComponent& component) {
    Attempt& reached = attempt(++variable_);
    if (reached.start < 0) {
      reached.component = component_;
      reached.bound = bound_;
      reached.start = msg_.offset();
    }
    reached.value.clear();
    const ConstComponent* const bound = nextBound(bound_);
    if (bound != ConstComponent::none() && bound != NewlineComponent::shared()) {
      field(variable_).set_steps(reached.steps);
    } else if (reached.steps == 0 && starFallback) {
      field(variable_).set_steps(0);
    }
    return component.matches(msg_, bound, reached.value);
  }

  /// Returns to the latest field with another alternative. The first one counts only when nothing behind it was
  /// reached: formats in use rely on which messages they do not match.
  bool goBack() {
    if (++failures_ > kMaxFailures || variable_ < 0) return false;
    attempt(variable_).steps = field(variable_).get_steps();
    if (attempt(variable_).steps >= 1) return returnTo(variable_);
    for (int i = variable_ - 1; i >= 1; --i) {
      if (attempt(i).steps > 0) return returnTo(i);
      attempt(i).steps = 0;
    }
    return false;
  }

  bool returnTo(int variable) {
    msg_.seek(attempt(variable).start);
    component_ = attempt(variable).component;
    bound_ = attempt(variable).bound;
    variable_ = variable - 1;
    return true;
  }

  SysLogMsg& msg_;
  const int variables_;
  std::vector<Attempt>& attempts_;
  Components component_;                     ///< The next one to match.
  qlList<ConstComponent*>::Iterator bound_;  ///< That of the next field.
  int variable_ = -1;                        ///< The latest one reached, from 0.
  int failures_ = 0;
  qlStrobj ignored_;  ///< What constants are given for a value.
};

}  // namespace quillon

int FormatSpec::bind(SysLogMsg& msg) {
  std::vector<Attempt>& attempts = attemptsFor(numVars);
  for (int i = 0; i < numVars; ++i) attempts[static_cast<std::size_t>(i)].value.clear();
  qlStrobj ignored;
  std::size_t v = 0;
  msg.reset();
  qlList<ConstComponent*>::Iterator bounds = lookahead.begin();
  for (FormatComponent* component : components) {
    const bool isField = component->variable();
    const ConstComponent* const bound = isField ? nextBound(bounds) : ConstComponent::none();
    if (!component->matches(msg, bound, isField ? attempts[v++].value : ignored)) return keepValues(false);
  }
  return keepValues(msg.end());
}

int FormatSpec::bind_UTF8(SysLogMsg& msg, int fromEventLog) {
  SysLogMsg converted = toUtf8(msg.getString(), fromEventLog);
  return bindConverted(converted);
}

int FormatSpec::bindConverted(SysLogMsg& msg) { return keepValues(quillon::Binding(*this, msg).run()); }

SysLogMsg FormatSpec::toUtf8(const char* text, int fromEventLog) {
  const quillon::ConvertedText converted(nxl_to_utf8, quillon::platformCodeset(), text ? text : "");
  if (!converted.text()) quillon::exitWithoutMemory("FormatSpec::bind_UTF8: malloc failure.");
  // From here on all text within the process is UTF-8.
  [[maybe_unused]] static const int once = nxl_set_def_cs(nxl_cs_new("UTF8"));
  SysLogMsg msg(converted.text());
  if (fromEventLog) msg.setEventFromEventLog();
  return msg;
}

/// Makes the values of the last attempt those of this format when it `bound`, and all values empty otherwise. Returns
/// `bound`.
int FormatSpec::keepValues(bool bound) {
  if (bound && !values && numVars > 0) values = std::make_unique<std::array<qlStrobj, kMaxVariables>>();
  if (!values) return bound;
  std::vector<Attempt>& attempts = attemptsFor(numVars);
  for (std::size_t i = 0; i < static_cast<std::size_t>(std::min(numVars, kMaxVariables)); ++i) {
    if (bound) {
      std::swap((*values)[i], attempts[i].value);
    } else {
      (*values)[i].clear();
    }
  }
  return bound;
}

qlStrobj FormatSpec::aevent() {
  qlStrobj event("EVENT ");
  event << getName();
  for (MsgMapEntry* e : getMaps()) event << " `" << e->getName() << "=" << e->svalue(this) << "'";
  return event << " END";
}

void FormatSpec::dbgmatch() {
  std::printf("matched %s\n", getName().view().data());
  for (int n = 1; n <= numVars; ++n) {
    const quillon::ConvertedText local(nxl_from_utf8, quillon::platformCodeset(), value(n).view());
    if (!local.text()) quillon::exitWithoutMemory("FormatSpec::dbgmatch: malloc failure.");
    std::printf("\t$%d is `%s'\n", n, local.text());
  }
}
