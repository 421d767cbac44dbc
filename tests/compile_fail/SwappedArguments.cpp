// Built twice by the tests: as written, it must build; with KALVOS_SWAPPED, where a message's
// text and position change places, it must not.
#include <string_view>

#include "support/JObject.h"

struct Probe : JObject {
    void Raises() const {
#ifdef KALVOS_SWAPPED
        Raise<MessageId::BadNumber>(__LINE__, "", 3, std::string_view("1e5"));
#else
        Raise<MessageId::BadNumber>(__LINE__, "", std::string_view("1e5"), 3);
#endif
    }
};
