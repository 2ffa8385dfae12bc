#include "lab/chart.h"

#include <cerrno>
#include <cstddef>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "lab/annotation.h"
#include "lab/encoding.h"
#include "lab/page_files.h"
#include "platform/json.h"

namespace csi_lab {
namespace {

bool ends_with(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

void replace(std::string& in, std::string_view what, std::string_view with) {
    const std::size_t at = in.find(what);
    if (at == std::string::npos) {
        throw std::logic_error("the page lacks " + std::string(what));
    }
    in.replace(at, what.size(), with);
}

/// JSON that cannot end the script element around it.
std::string without_tags(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += c == '<' ? "\\u003c" : std::string(1, c);
    }
    return result;
}

/// The source expression for a Content-Security-Policy.
std::string hash_source(std::string_view hexadecimal) {
    std::string bytes;
    for (std::size_t at = 0; at + 1 < hexadecimal.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(std::string(hexadecimal.substr(at, 2)), nullptr, 16));
    }
    return "'sha256-" + to_base64(bytes) + "'";
}

std::string policy() {
    return R"(<meta http-equiv="Content-Security-Policy" content="default-src 'none'; script-src )" +
           hash_source(page_script_hash) + "; style-src " + hash_source(page_style_hash) +
           R"(; img-src data:; base-uri 'none'; form-action 'none'">)";
}

std::string file_name_of(const std::string& path) {
    return path == "-" ? "recording" : path.substr(path.rfind('/') + 1);
}

} // namespace

chart_format chart_format_of(const std::string& file_name) {
    if (ends_with(file_name, ".html")) {
        return chart_format::page;
    }
    if (ends_with(file_name, ".svg")) {
        return chart_format::picture;
    }
    throw std::runtime_error(file_name + " ends neither in .html nor in .svg");
}

std::string chart_page(const std::vector<entry>& recording, const std::string& name) {
    json::document quoted;
    quoted.CopyFrom(json::make_string(is_utf8(name) ? name : "recording", quoted.GetAllocator()),
                    quoted.GetAllocator());
    const std::string data =
        "{\"name\":" + json::write(quoted) + ",\"items\":" + format_annotated(recording) + "}";
    const std::string charset = R"(<meta charset="utf-8">)";
    std::string result(page_html);
    replace(result, charset, charset + "\n" + policy());
    replace(result, R"(<link rel="stylesheet" href="page.css">)",
            "<style>" + std::string(page_style) + "</style>");
    replace(result, R"(<script src="page.js"></script>)",
            R"(<script type="application/json" id="recording">)" + without_tags(data) +
                "</script>\n<script>" + std::string(page_script) + "</script>");
    return result;
}

void write_chart(const std::string& recording, const std::string& file_name) {
    const std::vector<entry> entries = read_recording(recording);
    const std::string chart = chart_format_of(file_name) == chart_format::page
                                  ? chart_page(entries, file_name_of(recording))
                                  : chart_picture(entries);
    std::ofstream file(file_name, std::ios::binary);
    file << chart << std::flush;
    if (!file) {
        throw std::runtime_error("cannot write " + file_name + ": " +
                                 std::generic_category().message(errno));
    }
}

} // namespace csi_lab
