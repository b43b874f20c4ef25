#include "peer/linux/Protocol.h"

#include <algorithm>
#include <iterator>

namespace peer::linux {

namespace {

struct Operation {
    std::int32_t type, subtype;
    const char* name;
};

constexpr Operation kOperations[] = {
    {kMapControl, kIgnored, "ignored"},    {kMapControl, kPlug, "plug"},
    {kMapControl, kUnplug, "unplug"},      {kMapControl, kMap, "map"},
    {kMapControl, kMapAck, "map-ack"},     {kMapControl, kUnmap, "unmap"},
    {kMapControl, kUnmapAck, "unmap-ack"}, {kOperation, kGetattr, "getattr"},
    {kOperation, kReadlink, "readlink"},   {kOperation, kMknod, "mknod"},
    {kOperation, kMkdir, "mkdir"},         {kOperation, kUnlink, "unlink"},
    {kOperation, kRmdir, "rmdir"},         {kOperation, kSymlink, "symlink"},
    {kOperation, kRename, "rename"},       {kOperation, kLink, "link"},
    {kOperation, kChmod, "chmod"},         {kOperation, kChown, "chown"},
    {kOperation, kTruncate, "truncate"},   {kOperation, kOpen, "open"},
    {kOperation, kRead, "read"},           {kOperation, kWrite, "write"},
    {kOperation, kStatfs, "statfs"},       {kOperation, kReaddir, "readdir"},
    {kOperation, kAccess, "access"},       {kOperation, kUtimens, "utimens"},
};

}  // namespace

const char* nameOf(std::int32_t type, std::int32_t subtype) {
    const auto* row =
        std::find_if(std::begin(kOperations), std::end(kOperations),
                     [=](const Operation& r) { return r.type == type && r.subtype == subtype; });
    return row == std::end(kOperations) ? nullptr : row->name;
}

}  // namespace peer::linux
