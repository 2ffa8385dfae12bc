#include "lab/line_editor.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <iterator>
#include <string_view>
#include <utility>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace csi_lab {
namespace {

constexpr std::string_view prompt = "lab> ";
constexpr int kept_lines = 500;

char* prompt_text(EditLine* /*editor*/) {
    static std::string text(prompt);
    return text.data();
}

std::size_t terminal_columns() {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : 80;
}

void write_out(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

/// What all of the words begin with; they are not empty.
std::string common_beginning(const std::vector<std::string>& words) {
    std::string result = words.front();
    for (const std::string& word : words) {
        const auto end = std::mismatch(result.begin(), result.end(), word.begin(), word.end());
        result.erase(end.first, result.end());
    }
    return result;
}

} // namespace

line_editor::line_editor(int signals, std::vector<std::string> words)
    : signals_(signals)
    , words_(std::move(words))
    , editor_((std::setlocale(LC_CTYPE, ""), el_init("csi_lab", stdin, stdout, stderr)), el_end)
    , history_(history_init(), history_end) {
    HistEvent event{};
    history(history_.get(), &event, H_SETSIZE, kept_lines);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    el_set(editor_.get(), EL_CLIENTDATA, this);
    el_set(editor_.get(), EL_PROMPT, prompt_text);
    el_set(editor_.get(), EL_EDITOR, "emacs");
    el_set(editor_.get(), EL_HIST, history, history_.get());
    el_set(editor_.get(), EL_GETCFN, read_character);
    el_set(editor_.get(), EL_ADDFN, "complete-word", "Complete the word", complete);
    el_set(editor_.get(), EL_BIND, "^I", "complete-word", nullptr);
    el_set(editor_.get(), EL_BIND, "^R", "em-inc-search-prev", nullptr);
}

line_editor::~line_editor() = default;

std::optional<std::string> line_editor::next_line() {
    int size = 0;
    const char* const text = el_gets(editor_.get(), &size);
    if (text == nullptr || size <= 0) {
        write_out("\n");
        return std::nullopt;
    }
    std::string line(text, static_cast<std::size_t>(size));
    HistEvent event{};
    if (line.find_first_not_of(" \t\n") != std::string::npos) {
        history(history_.get(), &event, H_ENTER, line.c_str());
    }
    if (line.back() == '\n') {
        line.pop_back();
    }
    return line;
}

void line_editor::say(const std::string& line) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
    }
    added_.wake();
}

int line_editor::read_character(EditLine* editor, wchar_t* to) {
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return static_cast<line_editor*>(self)->wait_for_character(to);
}

/// 1 with a character, 0 at the end of the input, as the library wants it.
int line_editor::wait_for_character(wchar_t* to) {
    std::mbstate_t state{};
    while (true) {
        show_lines();
        std::array<pollfd, 3> polled{
            {{signals_, POLLIN, 0}, {added_.get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
        if (poll(polled.data(), polled.size(), -1) < 0 || polled[1].revents != 0) {
            continue;
        }
        char byte = 0;
        if (polled[0].revents != 0 || read(STDIN_FILENO, &byte, 1) <= 0) {
            return 0;
        }
        const std::size_t used = std::mbrtowc(to, &byte, 1, &state);
        constexpr auto incomplete = static_cast<std::size_t>(-2);
        constexpr auto invalid = static_cast<std::size_t>(-1);
        if (used == invalid) {
            *to = static_cast<unsigned char>(byte);
        }
        if (used != incomplete) {
            return 1;
        }
    }
}

void line_editor::show_lines() {
    added_.reset();
    std::vector<std::string> lines;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines.swap(lines_);
    }
    if (lines.empty()) {
        return;
    }
    clear_typed_rows();
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\r\n";
    }
    write_out(text);
    el_set(editor_.get(), EL_REFRESH);
}

/// The typed line may need several rows of the terminal.
void line_editor::clear_typed_rows() const {
    const LineInfo* const typed = el_line(editor_.get());
    const auto before_cursor = static_cast<std::size_t>(typed->cursor - typed->buffer);
    const std::size_t rows = (prompt.size() + before_cursor) / terminal_columns();
    write_out((rows == 0 ? "" : "\x1b[" + std::to_string(rows) + "A") + "\r\x1b[J");
}

unsigned char line_editor::complete(EditLine* editor, int /*character*/) {
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return static_cast<line_editor*>(self)->complete_word();
}

unsigned char line_editor::complete_word() {
    const LineInfo* const typed = el_line(editor_.get());
    const std::string before(typed->buffer, typed->cursor);
    const std::size_t begin = before.find_last_of(' ') + 1; // 0 when there is no blank
    const std::string word = before.substr(begin);
    std::vector<std::string> matching;
    std::copy_if(words_.begin(), words_.end(), std::back_inserter(matching),
                 [&](const std::string& one) { return one.compare(0, word.size(), word) == 0; });
    if (word.empty() || matching.empty()) {
        return CC_ERROR;
    }
    std::string addition = common_beginning(matching).substr(word.size());
    if (matching.size() == 1) {
        addition += word.front() == '{' ? "" : " ";
    } else if (addition.empty()) {
        std::string all;
        for (const std::string& one : matching) {
            all += one + "  ";
        }
        say(all);
        return CC_NORM;
    }
    el_insertstr(editor_.get(), addition.c_str());
    return CC_REFRESH;
}

} // namespace csi_lab
