// drives, ls, stat and rm.
#include <algorithm>
#include <cstdio>
#include <iterator>

#include "fdmount/Commands.h"
#include "fdmount/Progress.h"
#include "fdmount/Show.h"
#include "peer/Text.h"
#include "peer/windows/Status.h"

namespace fdmount {

using peer::windows::Drive;
using peer::windows::Entry;
using peer::windows::ObjectInfo;

namespace {

void print(const std::string& text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        throw CommandError("standard output cannot be written");
    }
}

const char* kindOf(const Drive& drive) {
    if (drive.printer) return "printer";
    switch (drive.type) {
        case peer::windows::kRootMap:
            return "root";
        case peer::windows::kDiskMap:
            return "disk";
        case peer::windows::kOpticalMap:
            return "optical";
        case peer::windows::kNetworkMap:
            return "network";
        default:
            return "?";
    }
}

std::string padded(const std::string& text, std::size_t width) {
    return text + std::string(width > text.size() ? width - text.size() : 0, ' ');
}

std::string paddedLeft(const std::string& text, std::size_t width) {
    return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

std::string longLine(const Entry& entry, std::size_t sizeWidth) {
    return modeText(entry.info.mode) + " " + attributesText(entry.info.mode) + " " +
           paddedLeft(std::to_string(entry.info.size), sizeWidth) + " " +
           timeText(entry.info.modified) + " " + nameText(entry.name) + "\n";
}

void printEntries(std::vector<Entry> entries, bool longForm) {
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return a.name < b.name; });
    std::size_t sizeWidth = 1;
    for (const Entry& entry : entries) {
        sizeWidth = std::max(sizeWidth, std::to_string(entry.info.size).size());
    }
    for (const Entry& entry : entries) {
        print(longForm ? longLine(entry, sizeWidth) : nameText(entry.name) + "\n");
    }
}

ObjectInfo statOf(Client& client, const RemotePath& object) {
    return about(object.shown, [&] { return client.session().stat(object.map, object.path); });
}

std::vector<Entry> entriesOf(Client& client, const RemotePath& folder) {
    std::vector<Entry> entries;
    const bool all = client.options().all;
    client.session().list(folder.map, folder.path, [&](std::vector<Entry> some) {
        if (!all) std::erase_if(some, [](const Entry& e) { return e.name.starts_with('.'); });
        entries.insert(entries.end(), std::make_move_iterator(some.begin()),
                       std::make_move_iterator(some.end()));
    });
    return entries;
}

const char* kindOf(const ObjectInfo& info) {
    switch (modeText(info.mode).front()) {
        case 'd':
            return "directory";
        case '-':
            return "regular file";
        case 'l':
            return "symbolic link";
        case 'p':
            return "FIFO";
        case 's':
            return "socket";
        case 'c':
            return "character device";
        case 'b':
            return "block device";
        default:
            return "?";
    }
}

void printVolume(Client& client, const RemotePath& object) {
    using namespace peer::windows;
    Session& session = client.session();
    const Created folder =
        session.open(object.map, "", kDirectory | kOpenIfExists | kFailIfNew | kAccessRead);
    const VolumeInfo volume = session.volume(object.map, folder.handle);
    session.close(object.map, folder.handle);
    print("Volume:     " + std::to_string(volume.total) + " bytes, " +
          std::to_string(volume.available) + " free, in units of " + std::to_string(volume.unit) +
          "\n");
}

bool removeOne(Client& client, const std::string& name) {
    try {
        const RemotePath object = client.resolve(name);
        if (object.path.empty()) throw CommandError(name + ": is a drive");
        const bool isFolder = statOf(client, object).isDirectory();
        if (isFolder && !client.options().removeFolders) {
            throw CommandError(name + ": is a directory");
        }
        about(name, [&] {
            client.session().remove(
                object.map, object.path,
                isFolder ? peer::windows::kRemoveDirectory : peer::windows::kRemoveFile);
        });
        return true;
    } catch (const CommandError& error) {
        warn(error.what());
        return false;
    }
}

}  // namespace

int showDrives(Client& client) {
    const std::vector<Drive> drives = client.allDrives();
    if (drives.empty()) {
        warn("no drives are offered");
        return 0;
    }
    std::size_t width = 4;
    for (const Drive& drive : drives) width = std::max(width, peer::quoted(drive.name).size());
    print(padded("NAME", width) + "  KIND           SIZE        FREE  FOLDER\n");
    for (const Drive& drive : drives) {
        print(padded(peer::quoted(drive.name), width) + "  " + padded(kindOf(drive), 7) + "  " +
              paddedLeft(sizeText(drive.volume.total), 10) + "  " +
              paddedLeft(sizeText(drive.volume.available), 10) + "  " + peer::escaped(drive.share) +
              "\n");
    }
    return 0;
}

int listFolder(Client& client) {
    if (client.options().paths.empty()) {
        for (const Drive& drive : client.allDrives()) print(nameText(drive.name) + "\n");
        return 0;
    }
    const RemotePath object = client.resolve(client.options().paths.front());
    if (!object.path.empty()) {
        const ObjectInfo info = statOf(client, object);
        if (!info.isDirectory()) {
            printEntries({{object.shown, info}}, client.options().longForm);
            return 0;
        }
    }
    printEntries(about(object.shown, [&] { return entriesOf(client, object); }),
                 client.options().longForm);
    return 0;
}

int showObject(Client& client) {
    for (const std::string& name : client.options().paths) {
        const RemotePath object = client.resolve(name);
        const ObjectInfo info = statOf(client, object);
        print("Name:       " + peer::escaped(name) + "\nKind:       " + kindOf(info) +
              "\nSize:       " + std::to_string(info.size) + "\nMode:       " +
              modeText(info.mode) + "\nAttributes: " + attributesText(info.mode) +
              "\nAccessed:   " + timeText(info.accessed) + "\nModified:   " +
              timeText(info.modified) + "\nChanged:    " + timeText(info.changed) +
              "\nBorn:       " + timeText(info.born) + "\n");
        if (object.path.empty()) about(name, [&] { printVolume(client, object); });
    }
    return 0;
}

int removeObjects(Client& client) {
    bool allGone = true;
    for (const std::string& name : client.options().paths) {
        if (!removeOne(client, name)) allGone = false;
    }
    return allGone ? 0 : kExitFailure;
}

}  // namespace fdmount
