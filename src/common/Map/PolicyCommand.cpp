// The policy command: reads the server's settings for this connection and stores them in the
// policy. Runs on the processing thread.
#include <cstddef>
#include <cstdint>
#include <string>

#include "common/Comm/FdLog.h"
#include "common/Comm/WireNumbers.h"
#include "common/Comm/WireReader.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapManager.h"
#include "common/Policy/FdClientPolicy.h"

namespace {
// The fields at fixed places. Behind the last one every place depends on the lengths before it.
constexpr int kPolicyAt = 4;
constexpr int kSpeedAt = 8;
constexpr int kEndOfFileEnableAt = 20;
constexpr int kEndOfFileSizeAt = 24;
constexpr int kRamdiskAt = 28;
constexpr int kCompressEnableAt = 32;
constexpr int kCompressPolicyAt = 36;
constexpr int kThresholdAt = 40;
constexpr int kBoundSizeAt = 44;
constexpr int kCompressTypeAt = 48;

constexpr int kServerVersion = 61;      // the message carries none: the handshake's number stands
constexpr const char* kRootDir = "/.";  // how paths of the root map begin

void storeFixedFields(const char* message, FdClientPolicy& policy) {
    const auto field = [message](int at) { return loadLe<std::int32_t>(message + at); };

    FD_LOG_INFO("Policy::policy: %x", loadLe<unsigned>(message + kPolicyAt));
    FD_LOG_INFO("Policy::speed: %d", field(kSpeedAt));
    FD_LOG_INFO("Policy::type: %d", loadLe<std::uint16_t>(message + kTypeAt));

    policy.setItaPolicy(field(kPolicyAt));
    policy.setSpeed(field(kSpeedAt));
    policy.setServerVersion(kServerVersion);
    policy.setLinuxSetEndOfFile(field(kEndOfFileEnableAt), field(kEndOfFileSizeAt));
    policy.setLinuxRamdiskEmable(field(kRamdiskAt));
    policy.setCompressPolicy(field(kCompressEnableAt), field(kCompressPolicyAt),
                             field(kThresholdAt), field(kBoundSizeAt));
    policy.setCompressType(0, nullptr);
}

bool storeNumber(WireReader& message, FdClientPolicy& policy, bool (FdClientPolicy::*set)(int)) {
    const auto value = message.number<std::int32_t>();
    if (value) (policy.*set)(*value);
    return value.has_value();
}

bool storeText(WireReader& message, FdClientPolicy& policy,
               bool (FdClientPolicy::*set)(const char*)) {
    const auto text = message.text();
    if (text) (policy.*set)(std::string(*text).c_str());
    return text.has_value();
}

bool storeDelimiter(WireReader& message, FdClientPolicy& policy) {
    const auto delimiter = message.number<char>();
    if (delimiter) policy.setDelimiter(*delimiter);
    return delimiter.has_value();
}

// Stores field by field in the order of the message, and ends at the first one that does not lie
// inside the buffer: those before it stay stored, it and all behind it keep their values.
bool storeOtherFields(WireReader message, FdClientPolicy& policy) {
    const bool skippedCompressType = message.text().has_value();
    return skippedCompressType && storeNumber(message, policy, &FdClientPolicy::setStatisticTime) &&
           storeNumber(message, policy, &FdClientPolicy::setLogLevel) &&
           storeNumber(message, policy, &FdClientPolicy::setLinuxRootDirEnable) &&
           storeText(message, policy, &FdClientPolicy::setLinuxMountPath) &&
           storeText(message, policy, &FdClientPolicy::setLinuxLocalfs) &&
           storeText(message, policy, &FdClientPolicy::setLinuxRemovefs) &&
           storeText(message, policy, &FdClientPolicy::setLinuxCdRomfs) &&
           storeText(message, policy, &FdClientPolicy::setLinuxNetworkfs) &&
           storeDelimiter(message, policy) &&  // the filter path is split by it
           storeText(message, policy, &FdClientPolicy::setLinuxDirFilterPath);
}
}  // namespace

void MapManager::HandlePolicy(char* pbuffer, int /*size*/) {
    FD_LOG_INFO("MapManager::HandlePolicy");

    storeFixedFields(pbuffer, *m_policy);
    // The bound is the work buffer, not the message: what the message lacks reads as zero.
    if (!storeOtherFields({pbuffer + kCompressTypeAt, MAX_CMD_BUFFER - kCompressTypeAt},
                          *m_policy)) {
        FD_LOG_ERROR("policy message leads past the work buffer, the rest of it is ignored");
        return;
    }
    m_policy->setLinuxrootDir(kRootDir);

    if (m_policy->isLinuxSystem() && m_onLinuxDesktop) {
        FD_LOG_INFO("Is Linux Desktop");
        m_onLinuxDesktop();
    }
}
