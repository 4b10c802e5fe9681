#ifndef QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MODIFIER_EXPAND_H_
#define QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MODIFIER_EXPAND_H_

#include "src/adapters/logfile/common/StringComponent.h"

/// The "*" modifier: any number of words, even none, up to the next constant anywhere in the format. A step more lets
/// the field run over one more occurrence of that constant. White space between words is captured as one blank.
///
/// Threads: as StringComponent, here and below.
template <class Field>
class StarModifier : public Field {
 public:
  explicit StarModifier(const char* text) : Field(text) {}
  StarModifier(const char* text, typename Field::SharedField shared) : Field(text, shared) {}

  int matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) override;
  quillon::ComponentKind kind() const override { return quillon::ComponentKind::kStar; }
  /// The first constant anywhere behind this component.
  ConstComponent* lookahead(qlList<FormatComponent*>& list, int i) override;

 private:
  int fillUp(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value, bool matched, int failures);
};

/// The "+" modifier: as "*", but at least one word.
template <class Field>
class PlusModifier : public StarModifier<Field> {
 public:
  /// Takes a reference on `more`, the star field that captures what follows the first word.
  PlusModifier(const char* text, StarModifier<Field>* more, typename Field::SharedField shared = Field::kNotShared);
  ~PlusModifier() override;

  int matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) override;
  quillon::ComponentKind kind() const override { return quillon::ComponentKind::kPlus; }
  ConstComponent* lookahead(qlList<FormatComponent*>& list, int i) override;

 private:
  StarModifier<Field>* star;
};

extern template class StarModifier<StringComponent>;
extern template class PlusModifier<StringComponent>;

#endif  // QUILLON_SRC_ADAPTERS_LOGFILE_COMMON_MODIFIER_EXPAND_H_
