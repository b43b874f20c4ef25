// The policy word, the numbers and their queries. Setters run on the processing thread, queries on
// any. The lists have files of their own.
#include "common/Policy/FdClientPolicy.h"

#include <algorithm>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"

namespace {
constexpr int kBaseClientVersion = 10;
constexpr int kLastVersionWithoutChineseName = 30;
constexpr int kLastBadSpeed = 32767;
constexpr unsigned kMaxThreshold = 1000;
constexpr int kDefaultThreshold = 900;
constexpr unsigned kMaxBoundSize = 10240;
constexpr int kDefaultBoundSize = 512;
constexpr unsigned kMaxSetEndOfFileSize = 4096;  // MB
constexpr int kNoSizeLimit = 0;
constexpr int kMaxStatisticTime = 120;

// Negative values are out of range as well.
bool exceeds(int value, unsigned limit) {
    return static_cast<unsigned>(value) > limit;
}
}  // namespace

FdClientPolicy::FdClientPolicy()
    : m_linuxDirFilterPath("/var/log"),
      m_linuxMountPath("/media|/Volumes|/swdb/mnt|/home"),
      m_linuxLocalfs(""),
      m_linuxRemovefs("vfat|ntfs|msdos|fuseblk"),
      m_linuxCdRomfs("cd9660|iso9660|udf"),
      m_linuxNetworkfs("smbfs|afpfs|cifs") {
    memset_s(m_compressType, sizeof m_compressType, 0, sizeof m_compressType);
    publishRootFilter(filterPathToVec(m_linuxDirFilterPath, m_delimiter));
}

FdClientPolicy::~FdClientPolicy() = default;

FdClientPolicy* FdClientPolicy::getInstance() {
    static FdClientPolicy instance;
    return &instance;
}

bool FdClientPolicy::setItaPolicy(int itaPolicy) {
    m_itaPolicy = itaPolicy;
    FD_LOG_INFO("setItaPolicy: %x", static_cast<unsigned>(itaPolicy));

    if (isLocalEnable()) FD_LOG_INFO("FILE_DRIVER_REDIR_LOCAL  is enable");
    if (isRemoveEnable()) FD_LOG_INFO("FILE_DRIVER_REDIR_REMOVE  is enable");
    if (isCdromEnable()) FD_LOG_INFO("FILE_DRIVER_REDIR_CDROM  is enable");
    if (isNetworkEnable()) FD_LOG_INFO("FILE_DRIVER_REDIR_REMOTE  is enable");
    if (isLptEnable()) FD_LOG_INFO("LPT_PORT_REDIR            is enable");
    if (isLptDefaultEnable()) FD_LOG_INFO("LPT_PORT_REDIR_DEFAULT    is enable");
    if (isLptAllEnable()) FD_LOG_INFO("LPT_PORT_REDIR_ALL        is enable");
    if (isXpSystem()) FD_LOG_INFO("FILE_DRIVER_REDIR_WINXP   is enable");
    if (isWin7System()) FD_LOG_INFO("FILE_DRIVER_REDIR_WIN7    is enable");
    if (isWritable()) FD_LOG_INFO("FILE_DRIVER_REDIR_READONLY is not enable");
    if (isMobileClientEnable()) FD_LOG_INFO("FILE_DRIVER_REDIR_MOBILE is enable");
    return true;
}

bool FdClientPolicy::setSpeed(int speed) {
    FD_LOG_INFO("setSpeed: %d", speed);
    if (speed != 0 && speed <= kLastBadSpeed) {
        speed = 0;
        FD_LOG_INFO("speed is not support!!!   speed: %d", speed);  // Kept: names the replacement
    }
    m_speed = speed;
    return true;
}

bool FdClientPolicy::setCompressPolicy(int compressEnable, int policy, int threshold,
                                       int size_bound) {
    FD_LOG_INFO("setCompressPolicy: %d, %d, %d, %d", compressEnable, policy, threshold, size_bound);
    if (exceeds(threshold, kMaxThreshold)) {
        threshold = kDefaultThreshold;
        FD_LOG_INFO("threashold is not support!!!   threashold: %d", threshold);
    }
    if (exceeds(size_bound, kMaxBoundSize)) {
        size_bound = kDefaultBoundSize;
        // Kept: says "threshold" of the size.
        FD_LOG_INFO("bound size is not support!!!   threshold: %d", size_bound);
    }
    m_compressEnable = compressEnable;
    m_compressPolicy = policy;
    m_compressThreshold = threshold;
    m_compressBoundSize = size_bound;
    return true;
}

bool FdClientPolicy::setCompressType(int typeSize, char* buffer) {
    FD_LOG_INFO("setCompressType: %d", typeSize);
    if (typeSize < 0) return false;
    if (typeSize == 0 || buffer == nullptr) {
        m_compressTypeSize = 0;
        memset_s(m_compressType, sizeof m_compressType, 0, sizeof m_compressType);
        return true;
    }

    constexpr int kBufferSize = sizeof m_compressType;
    if (typeSize > kBufferSize) FD_LOG_WARN("typeSize: %d, bufferSize: %d", typeSize, kBufferSize);
    const auto count = static_cast<std::size_t>(std::min(typeSize, kBufferSize));
    // Kept: m_compressTypeSize does not follow, and old bytes behind the new ones stay.
    if (const int err = memcpy_s(m_compressType, sizeof m_compressType, buffer, count); err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return false;
    }
    return true;
}

bool FdClientPolicy::setLinuxSetEndOfFile(int isEnable, int size) {
    FD_LOG_INFO("setLinuxSetEndOfFile: %d, %d", isEnable, size);
    if (exceeds(size, kMaxSetEndOfFileSize)) {
        size = kNoSizeLimit;
        FD_LOG_INFO("setendofsize size is not support!!!");
    }
    m_linuxSetFileEnable = isEnable;
    m_linuxSetFileBoundSize = size;
    return true;
}

bool FdClientPolicy::setLinuxRamdiskEmable(int isEnable) {
    FD_LOG_INFO("setLinuxRamdiskEmable: %d", isEnable);
    m_linuxRamdiskEnable = isEnable;
    return true;
}

bool FdClientPolicy::setStatisticTime(int time) {
    FD_LOG_INFO("setStatisticTime: %d", time);
    m_statisticTime = time;
    return true;
}

bool FdClientPolicy::setLogLevel(int level) {
    FD_LOG_INFO("setLogLevel: %d", level);
    m_logLevel = level;
    return true;
}

bool FdClientPolicy::setServerVersion(int version) {
    const int clientVersion = m_currentClientVersion;
    const int workingVersion = std::min(clientVersion, version);
    m_currentServerVersion = version;
    m_workingClientVersion = workingVersion;
    m_workingServiceVersion = workingVersion;
    FD_LOG_INFO("serverVer: %d, clientVer: %d, workingServerVer: %d, workingClientVer: %d", version,
                clientVersion, workingVersion, workingVersion);
    return true;
}

bool FdClientPolicy::setLinuxRootDirEnable(int isEnable) {
    FD_LOG_INFO("setLinuxRootDirEnable: %d", isEnable);
    m_linuxRootDirEnable = isEnable;
    return true;
}

void FdClientPolicy::SetLinuxDirCacheEnable(bool isEnable) {
    FD_LOG_INFO("SetLinuxDirCacheEnable: %d", isEnable ? 1 : 0);
    m_linuxDirCacheEnable = isEnable ? 1 : 0;
}

bool FdClientPolicy::hasBits(unsigned mask) const {
    return (static_cast<unsigned>(m_itaPolicy.load()) & mask) == mask;
}

bool FdClientPolicy::isFdRedirEnable() const {
    return hasBits(FILE_DRIVER_REDIR);
}

bool FdClientPolicy::isLocalEnable() const {
    return hasBits(FILE_DRIVER_REDIR_LOCAL);
}

bool FdClientPolicy::isRemoveEnable() const {
    return hasBits(FILE_DRIVER_REDIR_REMOVE);
}

bool FdClientPolicy::isCdromEnable() const {
    return hasBits(FILE_DRIVER_REDIR_CDROM);
}

bool FdClientPolicy::isNetworkEnable() const {
    return hasBits(FILE_DRIVER_REDIR_REMOTE);
}

bool FdClientPolicy::isWritable() const {
    return !hasBits(FILE_DRIVER_REDIR_READONLY);
}

bool FdClientPolicy::isWin7System() const {
    return hasBits(FILE_DRIVER_REDIR_WIN7);
}

bool FdClientPolicy::isXpSystem() const {
    return hasBits(FILE_DRIVER_REDIR_WINXP);
}

bool FdClientPolicy::isLinuxSystem() const {
    return hasBits(FILE_DRIVER_REDIR_LINUX);
}

bool FdClientPolicy::isMobileClientEnable() const {
    return hasBits(FILE_DRIVER_REDIR_MOBILE);
}

bool FdClientPolicy::isLptEnable() const {
    return hasBits(LPT_PORT_REDIR);
}

bool FdClientPolicy::isLptDefaultEnable() const {
    return hasBits(LPT_PORT_REDIR_DEFAULT);
}

bool FdClientPolicy::isLptAllEnable() const {
    return hasBits(LPT_PORT_REDIR_ALL);
}

bool FdClientPolicy::isPolicyExtend() const {
    return hasBits(FILE_DRIVER_POLICY_EXTEND);
}

int FdClientPolicy::getItaPolicy() const {
    return m_itaPolicy;
}

int FdClientPolicy::getLocalPolicy() const {
    return m_itaPolicy;
}

int FdClientPolicy::getWorkingPolicy() const {
    return m_itaPolicy;
}

int FdClientPolicy::getSpeed() const {
    return m_speed;
}

int FdClientPolicy::getWorkingClientVersion() const {
    return m_workingClientVersion;
}

int FdClientPolicy::getWorkingServiceVersion() const {
    return m_workingServiceVersion;
}

int FdClientPolicy::getCurrentClientVersion() const {
    return m_currentClientVersion;
}

int FdClientPolicy::getCurrentServerVersion() const {
    return m_currentServerVersion;
}

int FdClientPolicy::getBaseClientVersion() const {
    return kBaseClientVersion;
}

bool FdClientPolicy::isSupportChineseName() const {
    return m_workingClientVersion > kLastVersionWithoutChineseName;
}

int FdClientPolicy::getStatisticsTime() {
    int time = m_statisticTime;
    const int corrected = std::clamp(time, 0, kMaxStatisticTime);
    m_statisticTime.compare_exchange_strong(time, corrected);  // never over a newer value
    return corrected;
}

bool FdClientPolicy::isSupportCompress() const {
    return m_compressEnable == 1;
}

int FdClientPolicy::getCompressThreshold() const {
    return m_compressThreshold;
}

int FdClientPolicy::getCompressBoundSize() const {
    return m_compressBoundSize;
}

bool FdClientPolicy::isSupportLinuxSetFileSize() const {
    return m_linuxSetFileEnable == 1;
}

int FdClientPolicy::getLinuxSetFileBoundSize() const {
    return m_linuxSetFileBoundSize;
}

bool FdClientPolicy::isSupportRamdisk() const {
    return m_linuxRamdiskEnable == 1;
}

int FdClientPolicy::getLogLevel() const {
    return m_logLevel;
}

bool FdClientPolicy::isLinuxRootDirEnable() const {
    return m_linuxRootDirEnable == 1 && isFdRedirEnable();
}

bool FdClientPolicy::IsSupportLinuxDirCache() const {
    return m_linuxDirCacheEnable == 1;
}
