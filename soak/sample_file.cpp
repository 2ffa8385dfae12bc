#include "soak/sample_file.h"

#include <stdexcept>

namespace csi_soak {
namespace {

constexpr std::chrono::seconds period{1};
constexpr std::size_t bytes_per_kib = 1024;

} // namespace

sample_file::sample_file(const std::string& path) {
    if (path.empty()) {
        return;
    }
    file_.open(path);
    file_ << "seconds,anonymous_kib,descriptors,threads,replies,server_fault,peer_fault"
          << std::endl;
    if (!file_) {
        throw std::runtime_error("cannot write " + path);
    }
}

void sample_file::add(steady_clock::time_point now, const daemon_process::resources& used,
                      std::size_t replies, const std::string& server_fault,
                      const std::string& peer_fault) {
    due_ = now + period;
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - start_);
    file_ << static_cast<double>(elapsed.count()) / 1000 << ',' << used.anonymous / bytes_per_kib
          << ',' << used.descriptors << ',' << used.threads << ',' << replies << ',' << server_fault
          << ',' << peer_fault << std::endl;
}

} // namespace csi_soak
