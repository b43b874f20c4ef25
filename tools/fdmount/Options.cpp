#include "fdmount/Options.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <limits>

#include "peer/Endpoint.h"

namespace fdmount {

namespace {

using peer::windows::joined;
using peer::windows::Policy;

// Which mounted file systems a desktop wants to see where its user said nothing: all that hold
// files. An entry that is part of another one stands before it, as the lists are searched for the
// first place where a name occurs.
const std::vector<std::string> kMountParents = {"/media", "/Volumes", "/mnt", "/home",
                                                "/run/media"};
const std::vector<std::string> kLocalTypes = {
    "ext4",    "ext3",     "ext2",     "xfs",   "btrfs",  "tmpfs",    "ramfs",    "overlay",
    "f2fs",    "zfs",      "bcachefs", "jfs",   "nilfs2", "reiserfs", "apfs",     "hfs",
    "hfsplus", "squashfs", "erofs",    "ubifs", "minix",  "ufs",      "ecryptfs", "fuse"};
const std::vector<std::string> kRemovableTypes = {"vfat",  "exfat", "ntfs",
                                                  "ntfs3", "msdos", "fuseblk"};
const std::vector<std::string> kOpticalTypes = {"cd9660", "iso9660", "udf"};
const std::vector<std::string> kNetworkTypes = {"nfs",   "nfs4", "smbfs",      "cifs", "smb3",
                                                "afpfs", "9p",   "fuse.sshfs", "ceph", "virtiofs"};

struct Lists {
    std::vector<std::string> parents = kMountParents;
    std::vector<std::string> local = kLocalTypes;
    std::vector<std::string> removable = kRemovableTypes;
    std::vector<std::string> optical = kOpticalTypes;
    std::vector<std::string> network = kNetworkTypes;
    std::vector<std::string> filter;
    bool readOnly = false;
    bool rootMap = false;
    bool fixedSizes = false;
    std::int32_t sizeLimit = 0;
};

// Not before the callbacks have read the whole line.
Policy policyOf(const Lists& lists) {
    Policy policy;
    if (lists.readOnly) policy.word |= peer::windows::kReadOnly;
    const char delimiter = policy.delimiter;
    policy.mountParents = joined(lists.parents, delimiter);
    policy.localTypes = joined(lists.local, delimiter);
    policy.removableTypes = joined(lists.removable, delimiter);
    policy.opticalTypes = joined(lists.optical, delimiter);
    policy.networkTypes = joined(lists.network, delimiter);
    policy.setEndOfFile = lists.fixedSizes ? 0 : 1;
    policy.setEndOfFileLimit = lists.sizeLimit;
    policy.rootMap = lists.rootMap || !lists.filter.empty() ? 1 : 0;
    policy.filter = lists.filter.empty() ? "/" : joined(lists.filter, delimiter);
    return policy;
}

void addPolicyOptions(CLI::App& app, Lists& lists) {
    app.add_flag("--read-only", lists.readOnly, "Ask for drives that cannot be written");
    app.add_flag("--no-resize", lists.fixedSizes,
                 "Windows dialect: let nobody change sizes but by writing and emptying");
    app.add_option("--resize-limit", lists.sizeLimit,
                   "Windows dialect: megabytes up to which sizes may be changed; 0: no limit")
        ->check(CLI::Range(0, std::numeric_limits<std::int32_t>::max()));
    app.add_flag("--root-map", lists.rootMap, "Ask for the whole file tree as a drive too");
    const auto list = [&app](const char* name, std::vector<std::string>& to, const char* help) {
        app.add_option(name, to, help)->delimiter('|')->allow_extra_args(false)->take_all();
    };
    list("--filter", lists.filter, "Cut the file tree down to this folder; implies --root-map");
    list("--mount-parents", lists.parents, "Folders below which mounted file systems are drives");
    list("--local-fs", lists.local, "File system types that are local disks");
    list("--removable-fs", lists.removable, "File system types that are removable disks");
    list("--optical-fs", lists.optical, "File system types that are optical disks");
    list("--network-fs", lists.network, "File system types that are network volumes");
}

void addDialectOption(CLI::App& app, Options& options) {
    const auto choose = [&options](const std::string& name) {
        if (name != "linux" && name != "windows") {
            throw CLI::ValidationError("--dialect", name + " is neither linux nor windows");
        }
        options.dialect = name == "linux" ? peer::Dialect::kLinux : peer::Dialect::kWindows;
    };
    app.add_option_function<std::string>("--dialect", choose,
                                         "Which desktop to be: linux (default) or windows");
}

CLI::App* addCommand(CLI::App& app, Options& options, Command command, const char* name,
                     const char* help) {
    CLI::App* sub = app.add_subcommand(name, help);
    sub->fallthrough();
    sub->callback([&options, command] { options.command = command; });
    return sub;
}

void addCommands(CLI::App& app, Options& options) {
    addCommand(app, options, Command::kDrives, "drives", "List the drives that are offered");

    CLI::App* ls = addCommand(app, options, Command::kList, "ls", "List a folder, or a file");
    ls->add_option("PATH", options.paths, "DRIVE/path; without: the drives")->expected(0, 1);
    ls->add_flag("-l", options.longForm, "With mode, attributes, size and time");
    ls->add_flag("-a,--all", options.all, "Names that begin with a dot too");

    CLI::App* stat = addCommand(app, options, Command::kStat, "stat", "Show all about an object");
    stat->add_option("PATH", options.paths, "DRIVE/path")->required();

    CLI::App* get = addCommand(app, options, Command::kGet, "get", "Copy a file from a drive");
    get->add_option("ARGS", options.paths, "DRIVE/path [FILE, FOLDER or -]")
        ->required()
        ->expected(1, 2);
    get->add_flag("-q,--quiet", options.quiet, "Show no progress");

    CLI::App* put = addCommand(app, options, Command::kPut, "put", "Copy a file to a drive");
    put->add_option("ARGS", options.paths, "FILE or -, and DRIVE/path")->required()->expected(2);
    put->add_flag("-q,--quiet", options.quiet, "Show no progress");

    CLI::App* rm = addCommand(app, options, Command::kRemove, "rm", "Remove files");
    rm->add_option("PATH", options.paths, "DRIVE/path")->required();
    rm->add_flag("-d,--dir", options.removeFolders, "Remove empty folders too");
    app.require_subcommand(0, 1);
}

void addMountOptions(CLI::App& app, Options& options) {
    app.add_option("MOUNTPOINT", options.mountPoint, "A folder to mount the drives on");
    app.add_flag("-f,--foreground", options.foreground, "Mount without going to the background");
    app.add_option("-o", options.mountOptions,
                   "Options of the mount, such as ro,uid=1000; the man page lists them")
        ->allow_extra_args(false)
        ->take_all();
}

// A folder to mount on, or a command, and not both.
void checkWhatToDo(const CLI::App& app, Options& options) {
    const bool mounts = !options.mountPoint.empty();
    if (!app.get_subcommands().empty()) {
        if (mounts) throw CLI::ExtrasError({options.mountPoint});
        for (const char* option : {"-f", "-o"}) {
            if (app.count(option) == 0) continue;
            throw CLI::ValidationError(option, "is an option of a mount, not of a command");
        }
        return;
    }
    if (!mounts) throw CLI::RequiredError("A MOUNTPOINT or a command");
    options.command = Command::kMount;
}

int report(const CLI::App& app, const CLI::Error& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help and --version
    std::cerr << "fdmount: " << error.what() << " (see fdmount --help)\n";
    return kExitUsage;
}

}  // namespace

std::optional<Options> parseOptions(int argc, char** argv, int& exitCode) {
    Options options;
    Lists lists;
    double seconds = 30;
    CLI::App app{"Mounts or browses the drives that are offered at the other end of a channel.",
                 "fdmount"};
    app.set_version_flag("--version", std::string("fdmount ") + ZFD_VERSION);
    app.add_option("CHANNEL", options.channel, "unix:PATH, tcp:PORT, or exec:COMMAND to start one")
        ->required();
    addMountOptions(app, options);
    app.add_option("--timeout", seconds, "Seconds to wait for an answer (default 30)")
        ->check(CLI::Range(0.01, 86400.0));
    app.add_flag("--trace", options.trace, "Write each message, decoded, to standard error");
    addDialectOption(app, options);
    addPolicyOptions(app, lists);
    addCommands(app, options);

    try {
        app.parse(argc, argv);
        checkWhatToDo(app, options);
        if (const std::string fault = peer::endpointFault(options.channel); !fault.empty()) {
            throw CLI::ValidationError(fault);
        }
    } catch (const CLI::Error& error) {
        exitCode = report(app, error);
        return std::nullopt;
    }
    options.timeout = std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
    options.policy = policyOf(lists);
    return options;
}

}  // namespace fdmount
