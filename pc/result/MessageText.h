#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ZELPC {

/// One field of an HL7 message that holds something.
struct MessageField {
    std::string place;  ///< "PID-3"
    std::string name;   ///< what it is, when that is known: "patient"
    std::string value;  ///< as it stands
};

/// The fields of any HL7 message, in their order. Lines may end with carriage return, line feed or both.
[[nodiscard]] std::vector<MessageField> ListMessage(std::string_view text);

}  // namespace ZELPC
