#include "lab/session.h"

#include <utility>

namespace csi_lab {
namespace {

constexpr std::size_t kept_messages = 100; // they are shown, and not read again

} // namespace

session::session(const arguments& given, printer& to, observer watch, note_observer watch_notes)
    : quiet_(given.quiet)
    , json_(given.json)
    , to_(to)
    , filter_(given.only, given.except)
    , watch_(std::move(watch))
    , watch_notes_(std::move(watch_notes))
    , journal_(kept_messages) {
    if (!given.record.empty()) {
        file_.emplace(given.record);
    }
    journal_.on_traffic([this](const peers::message& what) { note_traffic(what); });
    journal_.on_message([this](const peers::message& what) { note_message(what); });
    lab_ = std::make_unique<peers::installation>(journal_, given.lab);
}

session::~session() {
    daemon_.reset();
    lab_.reset();
}

void session::run_daemon(const std::string& program, std::uint16_t http_port) {
    peers::installation_options real = lab_->options();
    real.http_port = http_port;
    daemon_ = std::make_unique<daemon_runner>(
        program, http_port == 0 ? lab_->configuration() : peers::configuration(real),
        [this](const std::string& line) { journal_.record("daemon", "log", line); });
    static_cast<void>(daemon_->start());
}

void session::say(const std::string& line) {
    to_.say(line);
    seen_.add(line);
}

void session::note_traffic(const peers::message& what) {
    const auto noted = recorder_.entry_of(what);
    if (!noted) {
        return;
    }
    if (file_) {
        file_->write(*noted);
    }
    if (json_ && filter_.shows(what)) {
        to_.show_json(format_entry(*noted));
    }
    if (watch_) {
        watch_(*noted);
    }
}

void session::note_message(const peers::message& what) {
    if (!json_ && !quiet_ && filter_.shows(what)) {
        to_.show(what);
    }
    if (watch_notes_ && what.to == "log") {
        watch_notes_("log", what.text);
    } else if (watch_notes_ && what.from == "lab") {
        watch_notes_("remark", what.to + ": " + what.text);
    }
    seen_.add(format_line(what, false)); // last: what is expected has been shown
}

} // namespace csi_lab
