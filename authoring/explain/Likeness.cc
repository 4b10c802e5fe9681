#include "authoring/explain/Likeness.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace quillon {

void Likeness::add(const std::vector<Part>& parts) {
  std::vector<std::uint32_t>& own = formats_.emplace_back();
  for (const Part& part : parts) {
    if (!part.isConstant() || part.text.empty()) continue;
    const auto [known, isNew] = byText_.try_emplace(part.text, static_cast<std::uint32_t>(constants_.size()));
    if (isNew) constants_.push_back({part.text, 0});
    if (std::find(own.begin(), own.end(), known->second) != own.end()) continue;
    own.push_back(known->second);
    ++constants_[known->second].formats;
  }
}

std::vector<std::uint32_t> Likeness::likest(std::string_view message, std::size_t most) const {
  std::vector<float> worth;
  worth.reserve(constants_.size());
  for (const Constant& constant : constants_) {
    const float rarity = std::log2(1 + static_cast<float>(formats_.size()) / static_cast<float>(constant.formats));
    worth.push_back(rarity * static_cast<float>(constant.text.size()) * (share(constant.text, message) - 0.25F));
  }
  std::vector<float> likeness(formats_.size());
  for (std::size_t i = 0; i < formats_.size(); ++i) {
    for (const std::uint32_t constant : formats_[i]) likeness[i] += worth[constant];
  }
  std::vector<std::uint32_t> places(formats_.size());
  std::iota(places.begin(), places.end(), 0U);
  most = std::min(most, places.size());
  const auto isLiker = [&likeness](std::uint32_t a, std::uint32_t b) {
    return likeness[a] != likeness[b] ? likeness[a] > likeness[b] : a < b;
  };
  std::partial_sort(places.begin(), places.begin() + static_cast<std::ptrdiff_t>(most), places.end(), isLiker);
  places.resize(most);
  return places;
}

/// How much of a constant stands in the message: all, one half, or nothing of it. Of one that is damaged in one place,
/// a half is whole.
float Likeness::share(std::string_view text, std::string_view message) {
  if (message.find(text) != std::string_view::npos) return 1;
  if (text.size() < 4) return 0;
  const std::size_t half = text.size() / 2;
  for (const std::string_view part : {text.substr(0, half), text.substr(half)}) {
    if (message.find(part) != std::string_view::npos) return 0.5F;
  }
  return 0;
}

}  // namespace quillon
