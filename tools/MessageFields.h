// Which of the library's messages a failure carries, and the values it was filled with: the
// tool points at the fault from them, since the library's messages stay exactly as they are.
#pragma once

#include <string_view>
#include <vector>

#include "support/Messages.h"

namespace cli {

struct MessageFields {
    MessageId Id = MessageId::Count;
    /// The values of the template's placeholders, in order; views into the message.
    std::vector<std::string_view> Args;
};

/// Reads a message raised by `method`, its error text removed first. False for a message that
/// no template of that method makes.
bool ReadMessage(std::string_view method, std::string_view message, std::string_view errortext,
                 MessageFields& fields);

}  // namespace cli
