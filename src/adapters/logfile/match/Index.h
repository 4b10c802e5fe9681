#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_INDEX_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_INDEX_H_

#include <array>
#include <bit>
#include <cstdint>
#include <vector>

#include "src/adapters/logfile/match/Probe.h"
#include "src/adapters/logfile/match/Words.h"

namespace quillon {

/// Finds the formats that may bind a message, among any number, by asking a few things about its words.
///
/// A tree. A node asks up to three probes and joins the answers; its children stand in a hash table. Formats with an
/// answer of their own are below the child of that answer. Formats that every answer suits are below all children when
/// they are few, otherwise below `besides`, which is walked as well. So a format that binds the message is reached: at
/// each node above it, it either has the message's answer or no answer. A leaf is a run of candidates in the order of
/// trying, each with a check of its own. Formats of which no word has a number, since stars stand around them, are
/// found by one of their words wherever that is: a node that asks for any word takes all the message's for answers.
///
/// Under many different headers the formats have little to be asked in common. The tree then has many roots, up to 64
/// of which have a bit each in a few tables by the first or the last byte of a word and by the number of words: whether
/// a root is worth a walk is known for all of them after some ten loads.
class Index {
 public:
  /// A node, a leaf, or nothing.
  class Ref {
   public:
    Ref() = default;
    static Ref node(std::uint32_t at) { return Ref(at + 1); }
    static Ref leaf(std::uint32_t at) { return Ref(at | kLeaf); }
    explicit operator bool() const { return bits_ != 0; }
    bool isLeaf() const { return (bits_ & kLeaf) != 0; }
    std::uint32_t at() const { return isLeaf() ? bits_ & ~kLeaf : bits_ - 1; }

   private:
    static constexpr std::uint32_t kLeaf = 1U << 31;
    explicit Ref(std::uint32_t bits) : bits_(bits) {}
    std::uint32_t bits_ = 0;
  };

  struct Candidate {
    std::uint32_t place;
    std::uint32_t program;  ///< See FirstPass::program().
    Probe check;            ///< `last` is set in the last one of a leaf.
    std::uint32_t print;
  };

  struct Child {
    std::uint32_t print;
    Ref ref;  ///< Nothing in a free place.
  };

  static constexpr std::size_t kMostProbes = 3;

  struct Node {
    std::array<Probe, kMostProbes> probes;
    std::uint32_t children;  ///< Where its hash table begins (open addressing, linear probing).
    std::uint32_t mask;      ///< The size of that, a power of 2, less 1.
    Ref other;               ///< For every other answer, and none.
    Ref besides;
    std::uint64_t likely;  ///< Of a node that asks for any word: the wordBit() of those that have a child.
  };

  /// Gives the candidates of a message, leaf by leaf, to `visit`, which takes the first of a leaf.
  template <class Visit>
  void find(const Words& words, Visit&& visit) const {
    for (std::uint64_t roots = possibleRoots(words); roots != 0; roots &= roots - 1) {
      walk(roots_[static_cast<std::size_t>(std::countr_zero(roots))], words, visit);
    }
  }

  static bool suits(const Candidate& candidate, const Words& words) {
    std::uint32_t print = 0;
    return candidate.check.part == Probe::Part::kNone ||
           (answer(candidate.check, words, print) && print == candidate.print);
  }

 private:
  friend class IndexBuilder;

  static constexpr std::size_t kMostRoots = 64;

  /// By the answer of one byte to a question about a word: the roots that have a format for it.
  struct Gate {
    std::int8_t position;
    bool lastByte;
    std::uint64_t missing;  ///< When there is no such word.
    std::array<std::uint64_t, 256> roots;
  };

  template <class Visit>
  void walk(Ref ref, const Words& words, Visit&& visit) const {
    while (ref) {
      if (ref.isLeaf()) return visit(&candidates_[ref.at()]);
      const Node& node = nodes_[ref.at()];
      if (node.probes[0].part == Probe::Part::kAny) {
        visitByAnyWord(node, words, visit);
        ref = node.besides;
        continue;
      }
      const Ref child = childOf(node, words);
      if (!node.besides) {
        ref = child;
      } else {
        walk(child, words, visit);
        ref = node.besides;
      }
    }
  }

  Ref childOf(const Node& node, const Words& words) const {
    std::uint32_t joined = 0;
    for (const Probe& probe : node.probes) {
      if (probe.part == Probe::Part::kNone) break;
      std::uint32_t print = 0;
      if (!answer(probe, words, print)) return node.other;
      joined = joinPrints(joined, print);
    }
    const Ref child = childFor(node, joined);
    return child ? child : node.other;
  }

  Ref childFor(const Node& node, std::uint32_t print) const {
    const Child* const children = &children_[node.children];
    std::uint32_t i = print & node.mask;
    while (children[i].ref && children[i].print != print) i = (i + 1) & node.mask;
    return children[i].ref;
  }

  /// Tells most words apart without a look at all their bytes.
  static std::uint64_t wordBit(char first, std::size_t size) {
    return 1ULL << ((static_cast<unsigned char>(first) + 7 * size) & 63);
  }

  /// A word that comes again leads to nothing new.
  template <class Visit>
  [[gnu::noinline]] void visitByAnyWord(const Node& node, const Words& words, Visit&& visit) const {
    for (std::uint32_t i = 0; i < words.count(); ++i) {
      const Word word = words[i];
      const std::uint32_t size = word.end - word.start;
      if ((node.likely & wordBit(words.text()[word.start], size)) == 0) continue;
      const Ref child = childFor(node, printOf(words.from(word.start), size));
      if (child && !words.has(i, word)) walk(child, words, visit);
    }
  }

  std::uint64_t possibleRoots(const Words& words) const {
    std::uint64_t roots = byCount_[words.count() < byCount_.size() ? words.count() : byCount_.size() - 1];
    for (const Gate& gate : gates_) {
      const std::uint32_t i = static_cast<std::uint32_t>(std::int32_t{gate.position});
      if (i >= words.count()) {
        roots &= gate.missing;
        continue;
      }
      const Word word = words[i];
      roots &= gate.roots[static_cast<unsigned char>(words.text()[gate.lastByte ? word.end - 1 : word.start])];
    }
    return roots;
  }

  std::vector<Ref> roots_;
  std::vector<Gate> gates_;
  std::array<std::uint64_t, 64> byCount_{};
  std::vector<Node> nodes_;
  std::vector<Child> children_;
  std::vector<Candidate> candidates_;
};

}  // namespace quillon

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_MATCH_INDEX_H_
