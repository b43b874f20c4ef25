// What the server decided for this connection. The policy command writes it on the processing
// thread while the control thread, the file service and the Linux dialect read it. No lock: every
// number is one atomic word, and a text or list is filled before it is published. A block that was
// replaced lives as long as the store, since a reader may still look at it.
#pragma once

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

// Bits of the policy word. A test with a mask of several bits is true only if all of them are set.
enum FdPolicyMask : unsigned {
    FILE_DRIVER_REDIR = 0x00000001,  // master switch
    FILE_DRIVER_REDIR_LOCAL = 0x00000003,
    FILE_DRIVER_REDIR_REMOVE = 0x00000009,
    FILE_DRIVER_REDIR_CDROM = 0x00000011,
    FILE_DRIVER_REDIR_READONLY = 0x00000020,
    FILE_DRIVER_REDIR_REMOTE = 0x00000041,
    FILE_DRIVER_REDIR_WIN7 = 0x00000100,
    FILE_DRIVER_REDIR_WINXP = 0x00000200,
    FILE_DRIVER_REDIR_LINUX = 0x00000400,
    FILE_DRIVER_REDIR_MOBILE = 0x00000801,
    LPT_PORT_REDIR = 0x00001000,
    LPT_PORT_REDIR_DEFAULT = 0x00002000,
    LPT_PORT_REDIR_ALL = 0x00004000,
    FILE_DRIVER_POLICY_EXTEND = 0x80000000,
};

class FdClientPolicy {
public:
    FdClientPolicy();
    virtual ~FdClientPolicy();
    FdClientPolicy(const FdClientPolicy&) = delete;
    FdClientPolicy& operator=(const FdClientPolicy&) = delete;

    // A process-wide instance, independent of those that the client manager makes.
    static FdClientPolicy* getInstance();

    bool setItaPolicy(int itaPolicy);
    bool setSpeed(int speed);
    bool setCompressPolicy(int compressEnable, int policy, int threshold, int size_bound);
    bool setCompressType(int typeSize, char* buffer);
    bool setLinuxSetEndOfFile(int isEnable, int size);  // size in MB
    bool setLinuxRamdiskEmable(int isEnable);
    bool setStatisticTime(int time);
    bool setLogLevel(int level);
    bool setServerVersion(int version);
    bool setLinuxRootDirEnable(int isEnable);
    void SetLinuxDirCacheEnable(bool isEnable);

    bool isFdRedirEnable() const;
    bool isLocalEnable() const;
    bool isRemoveEnable() const;
    bool isCdromEnable() const;
    bool isNetworkEnable() const;
    bool isWritable() const;
    bool isWin7System() const;
    bool isXpSystem() const;
    bool isLinuxSystem() const;
    bool isMobileClientEnable() const;
    bool isLptEnable() const;
    bool isLptDefaultEnable() const;
    bool isLptAllEnable() const;
    bool isPolicyExtend() const;

    int getItaPolicy() const;
    int getLocalPolicy() const;
    int getWorkingPolicy() const;
    int getSpeed() const;
    int getWorkingClientVersion() const;
    int getWorkingServiceVersion() const;
    int getCurrentClientVersion() const;
    int getCurrentServerVersion() const;
    int getBaseClientVersion() const;
    bool isSupportChineseName() const;
    int getStatisticsTime();  // corrects the stored value into 0 to 120
    bool isSupportCompress() const;
    int getCompressThreshold() const;
    int getCompressBoundSize() const;
    bool isSupportLinuxSetFileSize() const;
    int getLinuxSetFileBoundSize() const;  // MB, 0 for no limit
    bool isSupportRamdisk() const;
    int getLogLevel() const;
    bool isLinuxRootDirEnable() const;
    bool IsSupportLinuxDirCache() const;

    // The lists: one delimited text each, searched as it stands.
    std::vector<std::string> filterPathToVec(const std::string path, char delimiter);
    void logRootDirFilterVec(const std::vector<std::string> entries);
    bool setLinuxDirFilterPath(const char* filterPath);  // splits by the delimiter of this moment
    bool setLinuxrootDir(const char* rootpath);          // prefixes the entries of the root filter
    bool setLinuxMountPath(const char* mountPath);
    bool setLinuxLocalfs(const char* localFs);
    bool setLinuxRemovefs(const char* removeFs);
    bool setLinuxCdRomfs(const char* cdromFs);
    bool setLinuxNetworkfs(const char* networkFs);
    bool setDelimiter(char delimiter);

    // True when `path` of the root map is hidden from the server: the entries name what is visible.
    bool isLinuxRootPathFilter(const char* path) const;

    // True when a proper ancestor directory of `path` is one of the mount parents.
    bool isLinuxDirEnable(const char* path) const;
    bool isLocalFileSystem(const char* typeName) const;
    bool isRemoveFileSystem(const char* typeName) const;
    bool isCdRomeFileSystem(const char* typeName) const;
    bool isNetworkFileSystem(const char* typeName) const;

private:
    using RootFilter = std::vector<std::string>;
    struct FreeBlock {
        void operator()(char* block) const { std::free(block); }
    };
    using TextBlock = std::unique_ptr<char, FreeBlock>;

    bool hasBits(unsigned mask) const;

    // The step that all five lists share. `infoFormat` takes the text's size with terminator (%d)
    // and the text (%s).
    bool replaceList(std::atomic<const char*>& list, const char* text, const char* nullText,
                     const char* infoFormat);
    void publishRootFilter(RootFilter entries);

    std::atomic<int> m_itaPolicy{0};
    std::atomic<int> m_speed{0};
    std::atomic<int> m_linuxDirCacheEnable{0};
    std::atomic<int> m_workingClientVersion{10};
    std::atomic<int> m_workingServiceVersion{10};
    std::atomic<int> m_currentClientVersion{61};
    std::atomic<int> m_currentServerVersion{10};
    std::atomic<int> m_compressEnable{0};
    std::atomic<int> m_compressPolicy{0};
    std::atomic<int> m_compressThreshold{900};
    std::atomic<int> m_compressBoundSize{512};
    int m_compressTypeSize = 0;      // only its writer, the processing thread, looks at it
    char m_compressType[2048] = {};  // likewise
    std::atomic<int> m_linuxSetFileEnable{1};
    std::atomic<int> m_linuxSetFileBoundSize{100};
    std::atomic<int> m_linuxRamdiskEnable{0};
    std::atomic<int> m_statisticTime{0};
    std::atomic<int> m_logLevel{0};
    std::atomic<int> m_linuxRootDirEnable{0};
    std::string m_linuxDirFilterPath;  // processing thread only
    std::atomic<const RootFilter*> m_rootDirFilterVec{nullptr};
    std::atomic<const char*> m_linuxMountPath;
    std::atomic<const char*> m_linuxLocalfs;
    std::atomic<const char*> m_linuxRemovefs;
    std::atomic<const char*> m_linuxCdRomfs;
    std::atomic<const char*> m_linuxNetworkfs;
    std::atomic<char> m_delimiter{'|'};

    // What was ever published from the heap. Only the processing thread adds to it.
    std::vector<TextBlock> m_textBlocks;
    std::vector<std::unique_ptr<const RootFilter>> m_rootFilters;
};
