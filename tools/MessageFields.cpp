#include "tools/MessageFields.h"

#include <cctype>

namespace cli {

namespace {

bool IsInteger(std::string_view text) {
    if (!text.empty() && text[0] == '-') text.remove_prefix(1);
    if (text.empty()) return false;
    for (const char c : text) {
        if (std::isdigit(static_cast<unsigned char>(c)) == 0) return false;
    }
    return true;
}

// A placeholder's value may hold the text that follows it in the template (an expression
// holds "(" and "]"), so each place where that text stands is tried, from the left, until the
// rest of the message matches too.
bool Match(std::string_view format, std::string_view text, std::vector<std::string_view>& args) {
    const std::size_t mark = format.find('%');
    if (mark == std::string_view::npos) return format == text;
    if (text.substr(0, mark) != format.substr(0, mark)) return false;
    text.remove_prefix(mark);
    const char conversion = format[mark + 1];
    format.remove_prefix(mark + 2);
    const std::string_view follower = format.substr(0, format.find('%'));
    for (std::size_t end = text.find(follower); end != std::string_view::npos;
         end = text.find(follower, end + 1)) {
        const std::string_view value = text.substr(0, end);
        if ((conversion == 'd' || conversion == 'u') && !IsInteger(value)) continue;
        args.push_back(value);
        if (Match(format, text.substr(end), args)) return true;
        args.pop_back();
    }
    return false;
}

}  // namespace

bool ReadMessage(std::string_view method, std::string_view message, std::string_view errortext,
                 MessageFields& fields) {
    if (message.size() < errortext.size() ||
        message.substr(message.size() - errortext.size()) != errortext) {
        return false;
    }
    message.remove_suffix(errortext.size());
    for (std::size_t id = 0; id < std::size(kMessages); ++id) {
        if (method != kMessages[id].Method) continue;
        fields.Args.clear();
        if (Match(kMessages[id].Format, message, fields.Args)) {
            fields.Id = static_cast<MessageId>(id);
            return true;
        }
    }
    return false;
}

}  // namespace cli
