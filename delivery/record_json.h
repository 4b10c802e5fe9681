#ifndef QUILLON_DELIVERY_RECORD_JSON_H_
#define QUILLON_DELIVERY_RECORD_JSON_H_

#include <string>

#include "delivery/Record.h"

namespace quillon::delivery {

/// Appends `record` as an object of JSON without a newline: of an event
///
///     {"class":"Sshd_Login","event_id":3,"slots":{"user":"ann"},"source":"web1/auth","position":"7:4711","set":"9f..."}
///
/// where attributes have "attributes" in the place of "slots", and a message has "text" alone before its "source". What
/// is empty, or no set, is left out. Bytes that are not UTF-8 become U+FFFD; of several values of one name, after that,
/// the later ones are told apart by "#2" and so on.
void appendJson(std::string& json, const Record& record);

/// 32 hexadecimal digits.
std::string hex(const SetId& set);

}  // namespace quillon::delivery

#endif  // QUILLON_DELIVERY_RECORD_JSON_H_
