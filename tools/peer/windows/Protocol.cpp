#include "peer/windows/Protocol.h"

namespace peer::windows {

const char* nameOf(std::uint16_t code) {
    switch (code) {
        case kCreate:
            return "create";
        case kClose:
            return "close";
        case kRead:
            return "read";
        case kWrite:
            return "write";
        case kFlush:
            return "flush";
        case kList:
            return "list";
        case kQueryInfo:
            return "query-info";
        case kSetInfo:
            return "set-info";
        case kVolume:
            return "volume";
        case kSetEndOfFile:
            return "set-end-of-file";
        case kRename:
            return "rename";
        case kRemove:
            return "remove";
        case kLocks:
            return "locks";
        case kMapCount:
            return "map-count";
        case kMapName:
            return "map-name";
        case kMapByName:
            return "map-by-name";
        case kUnmapQuery:
            return "unmap-query";
        case kMapAdd:
            return "map-add";
        case kMapDelete:
            return "map-delete";
        case kResult:
            return "result";
        case kMapAnswer:
            return "map-answer";
        case kUnmapAnswer:
            return "unmap-answer";
        case kEjectUsb:
            return "eject-usb";
        case kEjectCdrom:
            return "eject-cdrom";
        case kPolicy:
            return "policy";
        case kPrinterAdd:
            return "printer-add";
        case kDriveName:
            return "drive-name";
        case kCompressed:
            return "compressed";
        case kUserProfile:
            return "user-profile";
        case kHandshake:
            return "handshake";
        default:
            return nullptr;
    }
}

}  // namespace peer::windows
