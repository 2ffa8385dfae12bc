// The log's name, and what is there already. The first line is the log's directory, the second its
// name, and each further one makes something: "f" a file, "e" an empty one, "d" a directory, "p" a
// FIFO, "r" one that is read, "l" a link to the line after it.
#include <filesystem>
#include <fstream>
#include <set>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "daemon/log.h"
#include "harness.h"
#include "platform/descriptor.h"

using namespace csi_receiver;

namespace {

std::string top; // made for each input
std::string root;

void make_root() {
    top = std::filesystem::temp_directory_path() / "csi_receiver_fuzz_XXXXXX";
    assert(mkdtemp(top.data()) != nullptr);
    root = top + "/a/b/";
    std::filesystem::create_directories(root);
}

struct present_entry {
    descriptor fd; // keeps the number of the file from being used again
    struct stat status;
};

std::vector<present_entry> list_entries() {
    std::vector<present_entry> entries;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(top)) {
        descriptor fd(open(entry.path().c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat status {};
        assert(fstat(fd.get(), &status) == 0);
        entries.push_back({std::move(fd), status});
    }
    return entries;
}

/// The number of the file of that name, not of what it links to; 0 if there is none.
ino_t number_of(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

/// Failures are ignored.
void make(char kind, const std::string& path, std::istream& lines,
          std::vector<descriptor>& readers) {
    if (kind == 'f' || kind == 'e') {
        descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640));
        static_cast<void>(write(file.get(), "old", kind == 'f' ? 3 : 0));
    } else if (kind == 'd') {
        mkdir(path.c_str(), 0700);
    } else if (kind == 'p' || kind == 'r') {
        mkfifo(path.c_str(), 0600);
    }
    if (kind == 'r') {
        readers.emplace_back(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    } else if (std::string target; kind == 'l' && std::getline(lines, target)) {
        static_cast<void>(symlink((root + target).c_str(), path.c_str()));
    }
}

} // namespace

void fuzz::run(const std::string& input) {
    // Nothing must lead out of the temporary directory: one step up at most, and none with links.
    const std::size_t up = input.find("..");
    if (up != std::string::npos && (up != input.rfind("..") || input.find("\nl") < input.size())) {
        return;
    }
    make_root();
    umask(0); // as a daemonised process has it
    std::istringstream lines(input);
    std::string directory;
    std::string name;
    std::getline(lines, directory);
    std::getline(lines, name);
    std::vector<descriptor> readers;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) {
            make(line[0], root + line.substr(1), lines, readers);
        }
    }
    directory.insert(0, root);
    const std::string path = directory + "/" + name;
    const std::vector<present_entry> before = list_entries();
    const ino_t old = number_of(path);
    {
        const log_redirection redirection(directory, name);
        print(std::string(70000, 'x')); // more than a FIFO holds
    }
    log_out.close();

    std::set<ino_t> known;
    for (const auto& [fd, status] : before) {
        struct stat now {};
        assert(fstat(fd.get(), &now) == 0 && now.st_mode == status.st_mode);
        // The old log is moved or overwritten, but never deleted.
        assert(now.st_ino != old || now.st_nlink == status.st_nlink || S_ISDIR(now.st_mode));
        known.insert(now.st_ino);
    }
    for (const auto& [fd, status] : list_entries()) {
        const bool is_new = known.count(status.st_ino) == 0;
        assert(!is_new || status.st_mode == (S_IFDIR | 0705) ||
               (status.st_mode == (S_IFREG | 0644) && status.st_ino == number_of(path)));
    }
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path.c_str(), ignored)) {
        assert(std::filesystem::file_size(path.c_str()) == 70000);
    }
    std::filesystem::remove_all(top);
}
