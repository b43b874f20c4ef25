#include "peer/linux/Results.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <iterator>
#include <system_error>

namespace peer::linux {

namespace {

struct Result {
    std::int64_t number;  // on the wire
    int error;            // here
    const char* name;
};

constexpr Result kResults[] = {
    {1, EPERM, "EPERM"},
    {2, ENOENT, "ENOENT"},
    {3, ESRCH, "ESRCH"},
    {4, EINTR, "EINTR"},
    {5, EIO, "EIO"},
    {6, ENXIO, "ENXIO"},
    {7, E2BIG, "E2BIG"},
    {9, EBADF, "EBADF"},
    {11, EAGAIN, "EAGAIN"},
    {12, ENOMEM, "ENOMEM"},
    {13, EACCES, "EACCES"},
    {14, EFAULT, "EFAULT"},
    {16, EBUSY, "EBUSY"},
    {17, EEXIST, "EEXIST"},
    {18, EXDEV, "EXDEV"},
    {19, ENODEV, "ENODEV"},
    {20, ENOTDIR, "ENOTDIR"},
    {21, EISDIR, "EISDIR"},
    {22, EINVAL, "EINVAL"},
    {23, ENFILE, "ENFILE"},
    {24, EMFILE, "EMFILE"},
    {26, ETXTBSY, "ETXTBSY"},
    {27, EFBIG, "EFBIG"},
    {28, ENOSPC, "ENOSPC"},
    {29, ESPIPE, "ESPIPE"},
    {30, EROFS, "EROFS"},
    {31, EMLINK, "EMLINK"},
    {32, EPIPE, "EPIPE"},
    {34, ERANGE, "ERANGE"},
    {36, ENAMETOOLONG, "ENAMETOOLONG"},
    {38, ENOSYS, "ENOSYS"},
    {39, ENOTEMPTY, "ENOTEMPTY"},
    {40, ELOOP, "ELOOP"},
    {75, EOVERFLOW, "EOVERFLOW"},
    {84, EILSEQ, "EILSEQ"},
    {95, EOPNOTSUPP, "EOPNOTSUPP"},
    {107, ENOTCONN, "ENOTCONN"},
    {110, ETIMEDOUT, "ETIMEDOUT"},
    {116, ESTALE, "ESTALE"},
    {122, EDQUOT, "EDQUOT"},
};

RemoteError errorWith(int error, const char* name) {
    std::string text = std::generic_category().message(error);
    // "No such file", but "RPC struct is bad".
    if (text.size() > 1 && std::islower(static_cast<unsigned char>(text[1])) != 0) {
        text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    }
    return {error, text + " (" + name + ")"};
}

}  // namespace

RemoteError errorOf(std::int64_t res) {
    const auto* row = std::find_if(std::begin(kResults), std::end(kResults),
                                   [res](const Result& r) { return res == -r.number; });
    if (row == std::end(kResults)) return badReply("the unknown result " + std::to_string(res));
    return errorWith(row->error, row->name);
}

RemoteError localError(int error) {
    const auto* row = std::find_if(std::begin(kResults), std::end(kResults),
                                   [error](const Result& r) { return r.error == error; });
    return errorWith(error, row == std::end(kResults) ? "?" : row->name);
}

RemoteError badReply(const std::string& what) {
    return {EIO, "the other side's answer makes no sense: " + what};
}

}  // namespace peer::linux
