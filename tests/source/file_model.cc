#include "tests/source/file_model.h"

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <set>
#include <sstream>

#include "tests/source/file_world.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

/// A line that was written, or its beginning. Copies of a file share it.
struct Line {
  std::string text;
  std::string path;        ///< Where it was to be followed.
  std::uint64_t from = 0;  ///< Its place in its file.
  bool maybeAgain = false;
  bool header = false;  ///< The same text stands in other files.
  bool known = false;   ///< The source has looked at the file after the line, or at what it is in.
  unsigned arrived = 0;
  unsigned first = 0;  ///< When it arrived first, counted in messages.
};

/// What stands in a file.
struct Text {
  std::vector<std::shared_ptr<Line>> lines;
  std::uint64_t size = 0;
  bool copied = false;  ///< Nobody writes to it any more.
  bool open = false;    ///< The last line has no newline yet.
  unsigned born = 0;    ///< After so many looks.
  bool known = false;   ///< The source has looked at it while it was there to be followed,
  bool seen = false;    ///< and it was not empty.
  bool held = false;    ///< The source that runs now has looked at it.
};

/// What the source found at a path,
struct Looked {
  unsigned when = 0;  ///< at its so many'th look.
  std::shared_ptr<Text> text;
};

const std::array<const char*, 3> kLogs = {"in/a.log", "in/b.log", "in/l.log"};
const std::array<const char*, 2> kTargets = {"data/one", "data/two"};

enum Kind {
  kAppend,
  kPart,
  kRename,
  kRenameLater,
  kCopy,
  kTruncate,
  kRewrite,
  kDelete,
  kReplace,
  kLink,
  kMove,
  kLateWrite,
  kLook,
  kSome,
  kPoll,
  kWait,
  kKeep,
  kStop,
  kKill,
  kKinds
};
const std::array<const char*, kKinds> kKindNames = {
    "append", "part",      "rename", "renameLater", "copy", "truncate", "rewrite", "delete", "replace", "link",
    "move",   "lateWrite", "look",   "some",        "poll", "wait",     "keep",    "stop",   "kill"};

class Model {
 public:
  Model(const FileSequence& sequence, const fs::path& directory)
      : sequence_(sequence), world_(directory, optionsOf(sequence.setting)) {
    fs::remove_all(directory);
    for (const char* name : {"in", "out", "data"}) fs::create_directories(directory / name);
    world_.start();
  }

  FileVerdict run() {
    for (const FileStep& step : sequence_.steps) {
      take(step);
      if (!fault_.empty()) break;
    }
    if (fault_.empty()) finish();
    for (const auto& line : lines_) excused_ += line->arrived == 0;
    return {.fault = fault_, .lines = static_cast<unsigned>(lines_.size()), .excused = excused_};
  }

 private:
  static FileOptions optionsOf(unsigned setting) {
    FileOptions options;
    options.include = {setting % 2 == 0 ? "in/*.log" : "in/*.log*"};
    if (setting / 2 % 2 == 0) options.mostOpen = 2;  // see opensFew()
    options.watch = setting / 4 % 16 == 0;           // seldom: it takes the kernel long to end that
    return options;
  }

  // ---- What stands in files

  std::shared_ptr<Text> put(const std::string& path, std::shared_ptr<Text> text) {
    text->born = looks_;
    texts_.push_back(text);
    return files_[path] = std::move(text);
  }

  Text& text(const std::string& path) { return *files_.at(resolve(path)); }
  bool exists(const std::string& path) const { return files_.contains(resolve(path)); }
  std::string resolve(const std::string& path) const {
    const auto link = links_.find(path);
    return link == links_.end() ? path : link->second;
  }

  void write(const std::string& path, unsigned lines, bool open) {
    if (!exists(path)) create(path);
    Text& target = text(path);
    std::string bytes;
    for (unsigned i = 0; i < lines; ++i) {
      const bool last = open && i + 1 == lines;
      if (target.open) {
        target.lines.back()->text += ".rest";
        bytes += ".rest";
      } else {
        auto line = std::make_shared<Line>();
        line->text = 'L' + std::to_string(lines_.size()) + ' ' + std::string(random_() % 90, 'x');
        line->path = path;
        line->from = target.size + bytes.size();
        bytes += line->text;
        target.lines.push_back(line);
        lines_.push_back(line);
      }
      if (!last) bytes += '\n';
      target.open = last;
    }
    target.size += bytes.size();
    world_.append(path, bytes);
  }

  void create(const std::string& path) {
    auto fresh = put(resolve(path), std::make_shared<Text>());
    world_.append(path, "");
    if (random_() % 3 != 0) return;
    auto header = std::make_shared<Line>();
    header->text = "# a header that many files have";
    header->path = path;
    header->header = true;
    fresh->lines.push_back(header);
    fresh->size = header->text.size() + 1;
    world_.append(path, header->text + '\n');
  }

  void remove(const std::string& path) {
    files_.erase(path);
    fs::remove(world_.at(path));
  }

  void rename(const std::string& from, const std::string& to) {
    if (!files_.contains(from)) return;
    fs::rename(world_.at(from), world_.at(to));
    files_[to] = files_[from];
    files_.erase(from);
  }

  /// Makes room for a new FILE.1, as log rotation does.
  std::string shift(const std::string& path) {
    remove(path + ".3");
    rename(path + ".2", path + ".3");
    rename(path + ".1", path + ".2");
    return path + ".1";
  }

  void endLine(const std::string& path) {
    if (exists(path) && text(path).open) write(path, 1, false);
  }

  // ---- What happens

  void take(const FileStep& step) {
    random_.seed(step.amount);
    const std::string log = kLogs[step.name % 2];
    const std::string any = kLogs[step.name % 3];
    const unsigned few = 1 + step.amount % 4;
    switch (step.kind) {
      case kAppend:
        if (any != kLogs[2] || links_.contains(any)) write(any, few, false);
        break;
      case kPart:
        if (any != kLogs[2] || links_.contains(any)) write(any, few, true);
        break;
      case kRename:
      case kRenameLater:
        if (!exists(log)) break;
        rename(log, shift(log));
        if (step.kind == kRename) create(log);
        break;
      case kCopy: {
        if (!exists(log)) break;
        const std::string copy = shift(log);
        fs::copy_file(world_.at(log), world_.at(copy));
        world_.stamp(copy);
        put(copy, std::make_shared<Text>(text(log)))->copied = true;
        truncate(log);
        if (step.amount % 2 == 0) write(log, few, false);
        break;
      }
      case kTruncate:
        if (exists(any)) truncate(any);
        break;
      case kRewrite:
        if (!exists(any)) break;
        truncate(any);
        for (const std::uint64_t before = step.amount % 500; text(any).size < before;) write(any, 1, false);
        break;
      case kDelete:
        remove(log);
        forgetPath(log);
        break;
      case kReplace:  // the file system may give the new file the number of the old one
        if (!exists(log)) break;
        remove(log);
        write(log, few, false);
        break;
      case kLink: {
        const std::string target = kTargets[step.amount % 2];
        endLine(any == kLogs[2] && links_.contains(any) ? any : log);
        if (links_.contains(kLogs[2])) endLine(kLogs[2]);
        links_.erase(kLogs[2]);
        fs::remove(world_.at(kLogs[2]));
        if (!files_.contains(target)) create(target);
        fs::create_symlink(world_.at(target), world_.at(kLogs[2]));
        links_[kLogs[2]] = target;
        break;
      }
      case kMove: {
        const std::string out = "out/" + log.substr(3);
        endLine(log);
        if (exists(log) && !exists(out)) {
          rename(log, out);
          // Unless the source has it open nobody finds it there, and when it comes back it is new.
          if (text(out).held && !opensFew()) break;
          for (const auto& line : text(out).lines) line->maybeAgain = true;
          forgetPath(log);
        } else if (!exists(log) && exists(out)) {
          rename(out, log);
          forget(text(log));
        }
        break;
      }
      case kLateWrite:
        if (exists(log + ".1") && !text(log + ".1").open && !text(log + ".1").copied && text(log + ".1").known)
          lateWrite(log);
        break;
      case kLook:
        if (world_.isRunning()) world_.read();
        break;
      case kSome:
        if (world_.isRunning()) world_.read(few);
        break;
      case kPoll:
        look(std::chrono::seconds(1));
        break;
      case kWait:
        for (int i = 0; i < 8; ++i) look(std::chrono::seconds(1));
        break;
      case kKeep:
        if (world_.isRunning()) keep();
        break;
      case kStop:
        if (world_.isRunning()) {
          world_.stop();
          see();
          remember();
          for (const auto& text : texts_) text->held = false;
        } else {
          world_.start();
        }
        break;
      case kKill:
        if (!world_.isRunning()) break;
        killed_ = true;
        world_.kill();
        looked_ = keptLooked_;
        for (const auto& text : texts_) text->known = text->seen = text->held = false;
        for (Text* const text : keptKnown_) text->known = true;
        for (Text* const text : keptSeen_) text->seen = true;
        break;
      default:
        break;
    }
    collect();
  }

  /// The source may forget a path with its last file.
  void forgetPath(const std::string& path) {
    for (auto* const looked : {&looked_, &keptLooked_}) looked->erase(path);
  }

  /// The source may have told a file to be gone that comes back: it knows it again when it has looked at it here.
  void forget(Text& text) {
    if (text.lines.empty() || !text.lines.front()->maybeAgain) return;
    text.known = false;
    keptKnown_.erase(&text);
  }

  void truncate(const std::string& path) {
    fs::resize_file(world_.at(path), 0);
    world_.stamp(path);
    put(resolve(path), std::make_shared<Text>());
  }

  /// The writer has not heard of the rotation yet.
  void lateWrite(const std::string& log) {
    const std::shared_ptr<Text> target = files_.at(log + ".1");
    auto line = std::make_shared<Line>();
    line->text = 'L' + std::to_string(lines_.size()) + " late";
    line->path = log;
    line->from = target->size;
    target->lines.push_back(line);
    target->size += line->text.size() + 1;
    lines_.push_back(line);
    world_.append(log + ".1", line->text + '\n');
  }

  void look(Duration time) {
    if (!world_.isRunning()) return;
    world_.wait(time);
    world_.read();
    see();
  }

  /// The source has looked at all files.
  void see() {
    std::map<std::string, Looked> looked;
    ++looks_;
    const auto know = [](Text& text) {
      text.known = text.held = true;
      text.seen |= text.size > 0;
    };
    for (const auto& [path, text] : files_) {
      const bool rotated = path.ends_with(".1") || path.ends_with(".2") || path.ends_with(".3");
      if (!path.starts_with("in/")) continue;
      const auto before = looked_.find(path.substr(0, path.size() - 2));
      // Of files that it does not follow it knows those that were born since it looked at the one that was rotated;
      // when that one stands there again, nothing tells that there was another.
      const bool isGeneration = rotated && before != looked_.end() && text->born >= before->second.when &&
                                !(files_.contains(before->first) && files_.at(before->first) == before->second.text);
      if (!rotated || followsRotated() || isGeneration) know(*text);
      looked[path] = {.when = looks_, .text = text};
    }
    for (const auto& entry : links_) know(*files_.at(entry.second));
    looked_ = looked;
  }

  bool opensFew() const { return sequence_.setting / 2 % 2 == 0; }
  bool followsRotated() const { return sequence_.setting % 2 != 0; }

  void keep() {
    world_.keep();
    remember();
  }
  void remember() {
    keptLooked_ = looked_;
    for (const auto& text : texts_) {
      if (text->known) keptKnown_.insert(text.get());
      if (text->seen) keptSeen_.insert(text.get());
    }
  }

  // ---- What must come of it

  void collect() {
    for (; collected_ < world_.delivered.size(); ++collected_) {
      const std::string& text = world_.delivered[collected_].text;
      if (text[0] == '#') continue;
      const std::size_t number = text[0] == 'L' ? std::stoul(text.substr(1)) : lines_.size();
      if (number >= lines_.size() || lines_[number]->text != text) {
        fault_ = "this was never written: " + text;
        return;
      }
      Line& line = *lines_[number];
      if (line.arrived++ == 0) line.first = static_cast<unsigned>(collected_);
      if (line.arrived > 1 && !killed_ && !line.maybeAgain) fault_ = "arrived twice: " + text;
    }
  }

  void finish() {
    if (!world_.isRunning()) world_.start();
    for (int i = 0; i < 20; ++i) look(std::chrono::seconds(1));
    world_.drain();
    collect();
    for (const auto& [path, text] : files_) {
      const bool followed = path.starts_with("in/") && path.ends_with(".log");
      for (const auto& line : text->lines) {
        const bool moved = !path.starts_with("in/") && isInGap(*line);  // and the source was killed
        if (line->arrived == 0 && (followed || text->known) && !line->header && !moved) {
          fail("is in " + path + " and did not arrive: " + line->text);
        }
      }
    }
    for (const auto& text : texts_) {
      unsigned last = 0;
      for (const auto& line : text->lines) {
        if (line->header) continue;
        if (line->arrived == 0 && text->seen && !isInGap(*line))
          fail("no gap tells of " + line->path + ": " + line->text);
        if (line->arrived == 0) continue;
        if (line->first < last) fail("out of order: " + line->path + ": " + line->text);
        last = line->first;
      }
    }
  }

  bool isInGap(const Line& line) const {
    return std::any_of(world_.gaps.begin(), world_.gaps.end(), [&](const FileWorld::GapTold& gap) {
      return gap.path.starts_with(line.path) && gap.from <= line.from;
    });
  }
  void fail(const std::string& fault) {
    if (fault_.empty()) fault_ = fault;
  }

  const FileSequence& sequence_;
  FileWorld world_;
  std::minstd_rand random_;
  std::map<std::string, std::shared_ptr<Text>> files_;
  std::map<std::string, std::string> links_;
  std::vector<std::shared_ptr<Line>> lines_;
  std::vector<std::shared_ptr<Text>> texts_;  ///< All there were.
  unsigned looks_ = 0;
  std::map<std::string, Looked> looked_;      ///< Files that were there when the source looked last.
  std::map<std::string, Looked> keptLooked_;  ///< And, for a restart after SIGKILL, when that was kept last.
  std::set<Text*> keptKnown_;
  std::set<Text*> keptSeen_;
  std::size_t collected_ = 0;
  bool killed_ = false;
  unsigned excused_ = 0;
  std::string fault_;
};

}  // namespace

FileSequence FileSequence::random(std::uint64_t seed) {
  std::mt19937_64 random(seed);
  FileSequence sequence;
  sequence.setting = static_cast<unsigned>(random() % 64);
  const std::size_t length = 5 + random() % 40;
  for (std::size_t i = 0; i < length; ++i) {
    const auto kind = static_cast<int>(random() % (kKinds + 6));
    sequence.steps.push_back({.kind = kind < kKinds ? kind : (kind % 2 == 0 ? kAppend : kPoll),
                              .name = static_cast<unsigned>(random() % 6),
                              .amount = static_cast<unsigned>(random() % 1000)});
  }
  return sequence;
}

std::string FileSequence::toString() const {
  std::ostringstream text;
  text << "setting " << setting << " :";
  for (const FileStep& step : steps) {
    text << ' ' << kKindNames[static_cast<std::size_t>(step.kind)] << '(' << step.name << ',' << step.amount << ')';
  }
  return text.str();
}

FileSequence FileSequence::parse(const std::string& text) {
  FileSequence sequence;
  std::istringstream words(text);
  std::string word;
  words >> word >> sequence.setting >> word;
  while (words >> word) {
    FileStep step;
    const std::string kind = word.substr(0, word.find('('));
    const auto* const found = std::find(kKindNames.begin(), kKindNames.end(), kind);
    step.kind = static_cast<int>(found - kKindNames.begin());
    char comma;
    std::istringstream(word.substr(word.find('(') + 1)) >> step.name >> comma >> step.amount;
    sequence.steps.push_back(step);
  }
  return sequence;
}

FileVerdict runFileSequence(const FileSequence& sequence, const fs::path& directory) {
  return Model(sequence, directory).run();
}

FileSequence minimised(FileSequence sequence, const fs::path& directory) {
  for (std::size_t length = sequence.steps.size() / 2; length > 0; length /= 2) {
    for (std::size_t i = 0; i + length <= sequence.steps.size();) {
      FileSequence fewer = sequence;
      const auto first = fewer.steps.begin() + static_cast<std::ptrdiff_t>(i);
      fewer.steps.erase(first, first + static_cast<std::ptrdiff_t>(length));
      if (runFileSequence(fewer, directory).fault.empty()) {
        ++i;
      } else {
        sequence = std::move(fewer);
      }
    }
  }
  return sequence;
}

}  // namespace quillon
