#include "bench/bare_json.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace csi_bench {

std::size_t parse_and_write(const std::string& text) {
    json::document message;
    message.Parse<rapidjson::kParseIterativeFlag>(text.data(), text.size());
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    message.Accept(writer);
    return buffer.GetSize();
}

} // namespace csi_bench
