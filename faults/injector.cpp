#include "faults/injector.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include "faults/page.h"

// This code runs inside malloc and inside system calls: it allocates nothing while it counts.
namespace csi_faults {
namespace {

constexpr const char* memory = "memory";
constexpr int own_frames = 4; // of this library at most, innermost
constexpr int max_frames = 32;

struct module {
    std::uintptr_t begin;
    std::uintptr_t end;
    std::uintptr_t base;
    const char* name;
};

/// The call to fail: the occurrence-th one of that name with that call stack.
struct target {
    char call[32] = "";
    std::uint64_t stack = 0;
    unsigned occurrence = 0;
    int error = 0;
    bool from_then_on = false;
};

struct recorded_stack {
    const char* call;
    std::uint64_t stack;
    unsigned count;
    int depth;
    std::array<void*, max_frames> frames;
};

std::atomic<bool> counting{false};
thread_local bool inside = false; // this thread is in the injector itself
fault_page* page = nullptr;
const char* record_path = nullptr;
target wanted;
std::array<module, 256> modules;
std::size_t module_count = 0;
const module* own_module = nullptr;
std::mutex mutex; // guards what follows
unsigned seen = 0;
std::array<recorded_stack, 16384> record;
std::size_t record_size = 0;

struct inside_guard {
    inside_guard() { inside = true; }
    ~inside_guard() { inside = false; }
    inside_guard(const inside_guard&) = delete;
    inside_guard& operator=(const inside_guard&) = delete;
};

int add_module(dl_phdr_info* info, std::size_t /*size*/, void* /*unused*/) {
    module found{UINTPTR_MAX, 0, info->dlpi_addr, info->dlpi_name};
    for (int index = 0; index < info->dlpi_phnum; ++index) {
        const auto& segment = info->dlpi_phdr[index];
        if (segment.p_type == PT_LOAD) {
            const std::uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
            found.begin = std::min(found.begin, begin);
            found.end = std::max<std::uintptr_t>(found.end, begin + segment.p_memsz);
        }
    }
    if (module_count < modules.size()) {
        modules[module_count++] = found;
    }
    return 0;
}

const module* module_of(const void* address) {
    const auto number = reinterpret_cast<std::uintptr_t>(address);
    const auto* const end = modules.begin() + module_count;
    const auto* const found = std::find_if(modules.cbegin(), end, [number](const module& one) {
        return number >= one.begin && number < one.end;
    });
    return found == end ? nullptr : found;
}

std::uint64_t offset_of(const void* address) {
    const module* const in = module_of(address);
    return reinterpret_cast<std::uintptr_t>(address) - (in != nullptr ? in->base : 0);
}

/// Equal from run to run: counts where in its module each frame is, not at which address.
std::uint64_t hash_of(void* const* frames, int depth) {
    std::uint64_t hash = 14695981039346656037U;
    for (int index = 0; index < depth; ++index) {
        hash = (hash ^ offset_of(frames[index])) * 1099511628211U;
    }
    return hash;
}

void note(const char* call, std::uint64_t stack, void* const* frames, int depth) {
    auto* const end = record.begin() + record_size;
    auto* const known = std::find_if(record.begin(), end, [&](const recorded_stack& one) {
        return one.stack == stack && std::strcmp(one.call, call) == 0;
    });
    if (known != end) {
        ++known->count;
    } else if (record_size < record.size()) {
        recorded_stack added{call, stack, 1, depth, {}};
        std::copy(frames, frames + depth, added.frames.begin());
        record[record_size++] = added;
    }
}

int decide(const char* call) {
    if (record_path == nullptr && std::strcmp(wanted.call, call) != 0) {
        return 0;
    }
    if (page->fired != 0) {
        page->fired += wanted.from_then_on ? 1 : 0;
        return wanted.from_then_on ? wanted.error : 0;
    }
    std::array<void*, max_frames + own_frames> all{};
    void* const* const end = all.data() + backtrace(all.data(), static_cast<int>(all.size()));
    void* const* const frames =
        std::find_if_not(all.data(), all.data() + own_frames,
                         [](const void* frame) { return module_of(frame) == own_module; });
    const int depth = std::clamp(static_cast<int>(end - frames), 0, max_frames);
    const std::uint64_t stack = hash_of(frames, depth);
    const std::lock_guard<std::mutex> lock(mutex);
    if (record_path != nullptr) {
        note(call, stack, frames, depth);
    } else if (stack == wanted.stack && page->fired == 0 && ++seen == wanted.occurrence) {
        page->fired = 1;
        return wanted.error;
    }
    return 0;
}

void write_record() {
    std::FILE* const file = std::fopen(record_path, "w");
    for (std::size_t index = 0; file != nullptr && index < record_size; ++index) {
        const recorded_stack& one = record[index];
        std::fprintf(file, "%s %016llx %u", one.call, static_cast<unsigned long long>(one.stack),
                     one.count);
        for (int frame = 0; frame < one.depth; ++frame) {
            const void* const address = one.frames[static_cast<std::size_t>(frame)];
            const module* const in = module_of(address);
            std::fprintf(file, " %s+0x%llx", in != nullptr ? in->name : "",
                         static_cast<unsigned long long>(offset_of(address)));
        }
        std::fputc('\n', file);
    }
    if (file != nullptr) {
        std::fclose(file);
    }
}

void map_page(const char* path) {
    const int file = open(path, O_RDWR | O_CLOEXEC);
    void* const mapped =
        mmap(nullptr, sizeof(fault_page), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    page = mapped == MAP_FAILED ? nullptr : static_cast<fault_page*>(mapped);
}

/// "CALL STACK OCCURRENCE ERROR FROM_THEN_ON", as csi_faults writes it.
void read_case(const char* text) {
    unsigned long long stack = 0;
    int from_then_on = 0;
    // NOLINTNEXTLINE(cert-err34-c): csi_faults wrote the numbers
    if (std::sscanf(text, "%31s %llx %u %d %d", wanted.call, &stack, &wanted.occurrence,
                    &wanted.error, &from_then_on) == 5) {
        wanted.stack = stack;
        wanted.from_then_on = from_then_on != 0;
    }
}

} // namespace

void begin_counting() {
    const char* const path = std::getenv(page_variable);
    const char* const text = std::getenv(case_variable);
    record_path = std::getenv(record_variable);
    if (path == nullptr) {
        return;
    }
    map_page(path);
    read_case(text != nullptr ? text : "");
    dl_iterate_phdr(add_module, nullptr);
    own_module = module_of(reinterpret_cast<const void*>(&begin_counting));
    void* frame = nullptr;
    backtrace(&frame, 1); // loads what it needs the first time
    counting = page != nullptr;
}

void end_counting() {
    if (counting.exchange(false) && record_path != nullptr) {
        write_record();
    }
}

int fault_for(const char* call) {
    if (!counting || inside) {
        return 0;
    }
    const inside_guard guard;
    ++page->calls;
    return decide(call);
}

int fault_for_memory() {
    if (!counting || inside) {
        return 0;
    }
    const inside_guard guard;
    return decide(memory);
}

} // namespace csi_faults
