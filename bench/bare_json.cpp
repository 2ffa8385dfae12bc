#include "bench/bare_json.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace csi_bench {

std::string parse_and_write(const std::string& text, const reply_members& members) {
    json::document message;
    message.Parse<rapidjson::kParseIterativeFlag>(text.data(), text.size());
    for (const auto& [name, value] : members) {
        json::value added;
        if (value == nullptr) {
            added.SetBool(false);
        } else {
            added.SetString(value, message.GetAllocator());
        }
        message.AddMember(rapidjson::StringRef(name), added, message.GetAllocator());
    }
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    message.Accept(writer);
    return {buffer.GetString(), buffer.GetSize()};
}

} // namespace csi_bench
