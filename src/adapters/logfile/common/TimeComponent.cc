#include "src/adapters/logfile/common/TimeComponent.h"

#include <string_view>

#include "src/adapters/logfile/common/ConstComponent.h"
#include "src/adapters/logfile/common/SysLogMsg.h"

namespace {
TimeComponent* shared_time = nullptr;
}

void TimeComponent::init() {
  if (shared_time) return;
  shared_time = new TimeComponent("%t", kTimeField);
  share(shared_time);
}

TimeComponent* TimeComponent::create(const char* token) {
  if (std::string_view(token).size() > 2) error("bad %t specification", token);
  return shared_time;
}

int TimeComponent::matches(SysLogMsg& msg, const ConstComponent* next, qlStrobj& value) {
  for (int word = 0; word < 2; ++word) {
    if (!StringComponent::matches(msg, ConstComponent::none(), value)) return 0;
    const int run = msg.whitesp();
    if (run == 0) return 0;
    value.append(" ");
    msg += run;
  }
  return StringComponent::matches(msg, next, value);
}
