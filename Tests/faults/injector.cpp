// SPDX-License-Identifier: Apache-2.0
#include "injector.h"

#include <iterator>

namespace tovix::faults {

namespace {

using enum Kind;

constexpr unsigned bits(auto... kinds) {
    return (0u | ... | (1u << static_cast<unsigned>(kinds)));
}

constexpr unsigned kAnywhere = bits(kNoMemory, kUnplug, kReplug);
constexpr unsigned kOfDevice = kAnywhere | bits(kNoDevice);
constexpr unsigned kRequest = kOfDevice | bits(kStall, kTimeout, kBusy, kLate);
constexpr unsigned kOut = kRequest | bits(kOverrun, kShort, kEmpty);
constexpr unsigned kIn = kOut;

struct KindRow {
    const char* name;
    Domain domain;
};
constexpr KindRow kKindRows[] = {
    {"stall", Domain::kPlatform},          {"time-out", Domain::kPlatform},  {"no device", Domain::kPlatform},
    {"one byte short", Domain::kPlatform}, {"no bytes", Domain::kPlatform},  {"overrun", Domain::kPlatform},
    {"no memory", Domain::kPlatform},      {"busy", Domain::kPlatform},      {"late", Domain::kPlatform},
    {"unplug", Domain::kPlatform},         {"replug", Domain::kPlatform},    {"allocation", Domain::kMemory},
    {"thread", Domain::kThreads},          {"file refused", Domain::kFiles}, {"file cut short", Domain::kFiles},
    {"file empty", Domain::kFiles},        {"interrupted", Domain::kFiles},
};
static_assert(std::size(kKindRows) == kKinds);

struct SiteRow {
    const char* name;
    unsigned kinds;
};
constexpr SiteRow kSiteRows[] = {
    {"IOMasterPort", kAnywhere},
    {"IOServiceMatching", kAnywhere},
    {"CFNumberCreate", kAnywhere},
    {"IOServiceGetMatchingServices", kAnywhere | bits(kBusy)},
    {"IOCreatePlugInInterfaceForService", kOfDevice},
    {"QueryInterface", kOfDevice},
    {"GetDeviceVendor", kOfDevice},
    {"GetDeviceProduct", kOfDevice},
    {"GetDeviceReleaseNumber", kOfDevice},
    {"GetDeviceSpeed", kOfDevice},
    {"USBGetProductStringIndex", kOfDevice},
    {"USBGetSerialNumberStringIndex", kOfDevice},
    {"USBDeviceOpen", kOfDevice | bits(kBusy)},
    {"USBDeviceClose", kOfDevice},
    {"GetConfigurationDescriptorPtr", kIn},
    {"SetConfiguration", kRequest},
    {"CreateInterfaceIterator", kOfDevice},
    {"DeviceRequestTO", kIn},
    {"USBInterfaceOpen", kOfDevice | bits(kBusy)},
    {"USBInterfaceClose", kOfDevice},
    {"SetAlternateInterface", kRequest},
    {"ControlRequestTO", kIn},
    {"GetPipeStatus", kOfDevice | bits(kStall)},
    {"ReadPipeTO", kIn},
    {"WritePipeTO", kOut},
    {"ClearPipeStallBothEnds", kRequest},
    {"AbortPipe", kOfDevice | bits(kBusy)},
    {"ReadPipeAsync", kIn},
    {"CreateInterfaceAsyncEventSource", kOfDevice},
    {"new", bits(kNoAllocation)},
    {"malloc", bits(kNoAllocation)},
    {"calloc", bits(kNoAllocation)},
    {"posix_memalign", bits(kNoAllocation)},
    {"pthread_create", bits(kNoThread)},
    {"std::thread", bits(kNoThread)},
    {"pthread_mutex_init", bits(kNoThread)},
    {"pthread_cond_init", bits(kNoThread)},
    {"open", bits(kFileRefused)},
    {"read", bits(kFileRefused, kFileCutShort, kFileEmpty, kFileInterrupted)},
    {"fstat", bits(kFileRefused)},
};

Domain domain_of(Site site) {
    if (site < Site::kNew) return Domain::kPlatform;
    if (site < Site::kThreadCreate) return Domain::kMemory;
    return site < Site::kFileOpen ? Domain::kThreads : Domain::kFiles;
}

}  // namespace

std::string_view name_of(Kind kind) {
    return kKindRows[static_cast<std::size_t>(kind)].name;
}

std::string_view name_of(Site site) {
    return kSiteRows[static_cast<std::size_t>(site)].name;
}

Domain domain_of(Kind kind) {
    return kKindRows[static_cast<std::size_t>(kind)].domain;
}

bool is_possible(Site site, Kind kind) {
    return (kSiteRows[static_cast<std::size_t>(site)].kinds & bits(kind)) != 0;
}

void Injector::begin(const std::optional<Target>& target) {
    const Uncounted own;
    const std::lock_guard lock(mutex_);
    for (auto& trace : traces_)
        trace.clear();
    target_ = target;
    strikes_ = 0;
    active_ = true;
}

void Injector::end() {
    const std::lock_guard lock(mutex_);
    active_ = false;
}

std::optional<Kind> Injector::strike(Site site) {
    if (!thread_counts) return std::nullopt;
    const Uncounted own;  // the trace needs memory, too
    const std::lock_guard lock(mutex_);
    if (!active_) return std::nullopt;
    auto& trace = traces_[static_cast<std::size_t>(domain_of(site))];
    const auto index = static_cast<std::uint32_t>(trace.size());
    trace.push_back(site);
    if (!target_ || !is_possible(site, target_->kind)) return std::nullopt;
    const bool due = target_->onwards ? index >= target_->index : index == target_->index;
    if (!due) return std::nullopt;
    ++strikes_;
    return target_->kind;
}

Injector& injector() {
    static Injector the_injector;
    return the_injector;
}

}  // namespace tovix::faults
