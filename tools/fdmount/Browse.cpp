// drives, ls, stat and rm.
#include <algorithm>
#include <cstdio>
#include <iterator>

#include "fdmount/Commands.h"
#include "fdmount/Progress.h"
#include "fdmount/Show.h"
#include "peer/Text.h"

namespace fdmount {

using peer::Attributes;
using peer::DirEntry;
using peer::Offer;
using peer::Volume;

namespace {

constexpr const char* kBehindLink = "/.";  // makes the other side follow it

void print(const std::string& text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        throw CommandError("standard output cannot be written");
    }
}

const char* kindOf(const Offer& drive) {
    switch (drive.kind) {
        case Offer::Kind::kPrinter:
            return "printer";
        case Offer::Kind::kRoot:
            return "root";
        case Offer::Kind::kDisk:
            return "disk";
        case Offer::Kind::kRemovable:
            return "removable";
        case Offer::Kind::kOptical:
            return "optical";
        case Offer::Kind::kNetwork:
            return "network";
        case Offer::Kind::kUnknown:
            break;
    }
    return "?";
}

std::string padded(const std::string& text, std::size_t width) {
    return text + std::string(width > text.size() ? width - text.size() : 0, ' ');
}

std::string paddedLeft(const std::string& text, std::size_t width) {
    return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

// Only the Windows dialect tells them.
bool hasAttributes(const Client& client) {
    return client.options().dialect == peer::Dialect::kWindows;
}

std::string longLine(const DirEntry& entry, bool withAttributes, std::size_t sizeWidth) {
    const Attributes& info = entry.attributes;
    return modeText(info.mode) + " " +
           (withAttributes ? attributesText(info.windowsAttributes) + " " : "") +
           paddedLeft(std::to_string(info.size), sizeWidth) + " " + timeText(info.modified) + " " +
           nameText(entry.name) + "\n";
}

void printEntries(const Client& client, std::vector<DirEntry> entries) {
    std::sort(entries.begin(), entries.end(),
              [](const DirEntry& a, const DirEntry& b) { return a.name < b.name; });
    std::size_t sizeWidth = 1;
    for (const DirEntry& entry : entries) {
        sizeWidth = std::max(sizeWidth, std::to_string(entry.attributes.size).size());
    }
    for (const DirEntry& entry : entries) {
        print(client.options().longForm ? longLine(entry, hasAttributes(client), sizeWidth)
                                        : nameText(entry.name) + "\n");
    }
}

Attributes statOf(const RemotePath& object) {
    return about(object.shown, [&] { return object.files->stat(object.path); });
}

std::vector<DirEntry> entriesOf(Client& client, const RemotePath& folder) {
    std::vector<DirEntry> entries;
    const bool all = client.options().all;
    folder.files->list(folder.path, [&](std::vector<DirEntry> some) {
        if (!all) std::erase_if(some, [](const DirEntry& e) { return e.name.starts_with('.'); });
        entries.insert(entries.end(), std::make_move_iterator(some.begin()),
                       std::make_move_iterator(some.end()));
    });
    return entries;
}

void printVolume(const RemotePath& drive) {
    const Volume volume = drive.files->volume();
    print("Volume:     " + std::to_string(volume.blocks * volume.blockSize) + " bytes, " +
          std::to_string(volume.availableBlocks * volume.blockSize) + " free, in units of " +
          std::to_string(volume.blockSize) + "\n");
}

void printObject(const Client& client, const RemotePath& object) {
    const Attributes info = statOf(object);
    print("Name:       " + peer::escaped(object.shown) + "\nKind:       " + kindText(info.mode) +
          "\n");
    if (info.isLink()) {
        print("Target:     " +
              peer::escaped(
                  about(object.shown, [&] { return object.files->readLink(object.path); })) +
              "\n");
    }
    print("Size:       " + std::to_string(info.size) + "\nMode:       " + modeText(info.mode) +
          "\n");
    if (hasAttributes(client)) {
        print("Attributes: " + attributesText(info.windowsAttributes) + "\n");
    }
    print("Accessed:   " + timeText(info.accessed) + "\nModified:   " + timeText(info.modified) +
          "\nChanged:    " + timeText(info.changed) + "\n");
    if (info.born != 0) print("Born:       " + timeText(info.born) + "\n");
}

struct Sizes {
    std::string total = "?", available = "?";
};

// A drive may be offered and not answer.
Sizes sizesOf(const Offer& drive) {
    try {
        const Volume volume = drive.files->volume();
        return {sizeText(volume.blocks * volume.blockSize),
                sizeText(volume.availableBlocks * volume.blockSize)};
    } catch (const peer::RemoteError&) {
        return {};
    }
}

void removeOne(Client& client, const std::string& name) {
    const RemotePath object = client.resolve(name);
    if (object.path.empty()) throw CommandError(name + ": is a drive");
    const bool isFolder = statOf(object).isDirectory();
    if (isFolder && !client.options().removeFolders) {
        throw CommandError(name + ": is a directory");
    }
    about(name, [&] {
        isFolder ? object.files->removeFolder(object.path) : object.files->remove(object.path);
    });
}

// What cannot be done with one path is told, and the others have their turn.
template <typename Work>
int forEachPath(Client& client, Work work) {
    int exitCode = 0;
    for (const std::string& name : client.options().paths) {
        try {
            work(name);
        } catch (const CommandError& error) {
            warn(error.what());
            exitCode = kExitFailure;
        }
    }
    return exitCode;
}

}  // namespace

// The other side follows a link that something stands behind.
bool leadsToFolder(const RemotePath& object, const Attributes& attributes) {
    if (!attributes.isLink()) return attributes.isDirectory();
    try {
        return object.files->stat(object.path + kBehindLink).isDirectory();
    } catch (const peer::RemoteError&) {
        return false;
    }
}

int showDrives(Client& client) {
    const std::vector<Offer> drives = client.allDrives();
    if (drives.empty()) {
        warn("no drives are offered");
        return 0;
    }
    std::size_t width = 4;
    for (const Offer& drive : drives) width = std::max(width, peer::quoted(drive.name).size());
    print(padded("NAME", width) + "  KIND             SIZE        FREE  FOLDER\n");
    for (const Offer& drive : drives) {
        const Sizes sizes = sizesOf(drive);
        print(padded(peer::quoted(drive.name), width) + "  " + padded(kindOf(drive), 9) + "  " +
              paddedLeft(sizes.total, 10) + "  " + paddedLeft(sizes.available, 10) + "  " +
              peer::escaped(drive.folder) + "\n");
    }
    return 0;
}

int listFolder(Client& client) {
    if (client.options().paths.empty()) {
        for (const Offer& drive : client.allDrives()) print(nameText(drive.name) + "\n");
        return 0;
    }
    RemotePath object = client.resolve(client.options().paths.front());
    if (!object.path.empty()) {
        const Attributes info = statOf(object);
        if (!leadsToFolder(object, info)) {
            printEntries(client, {{object.shown, info}});
            return 0;
        }
        if (info.isLink()) object.path += kBehindLink;
    }
    printEntries(client, about(object.shown, [&] { return entriesOf(client, object); }));
    return 0;
}

int showObject(Client& client) {
    return forEachPath(client, [&](const std::string& name) {
        const RemotePath object = client.resolve(name);
        printObject(client, object);
        if (object.path.empty()) about(name, [&] { printVolume(object); });
    });
}

int removeObjects(Client& client) {
    return forEachPath(client, [&](const std::string& name) { removeOne(client, name); });
}

}  // namespace fdmount
