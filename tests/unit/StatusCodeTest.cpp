// Which status word each errno becomes.
#include "linux/comm/Opreator/StatusCode.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

#include "support/LogCapture.h"

namespace {

struct Row {
    int err;
    int status;
};

class StatusCodeTest : public testing::Test {
protected:
    void expectRows(std::initializer_list<Row> rows) {
        for (const Row& row : rows) {
            EXPECT_EQ(RTErrConvertFromLinux(static_cast<unsigned>(row.err)), row.status)
                << "errno " << row.err;
        }
        EXPECT_TRUE(m_log.lines().empty());
    }

    void expectUnknown(unsigned err, const std::string& text) {
        m_log.clear();
        EXPECT_EQ(RTErrConvertFromLinux(err), -35);
        EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{ZLOG_LEVEL_ERROR, text}}));
    }

    LogCapture m_log;
};

TEST_F(StatusCodeTest, GivesSuccessForZeroWithoutALog) {
    expectRows({{0, 0}});
}

TEST_F(StatusCodeTest, ConvertsTheErrorsOfFiles) {
    expectRows({
        {EPERM, -38},    {EACCES, -38},  {ENOENT, -102}, {ESRCH, -50},    {ECHILD, -50},
        {EINTR, -39},    {EIO, -250},    {ENXIO, -250},  {E2BIG, -42},    {EOVERFLOW, -42},
        {ENOEXEC, -608}, {EBADF, -4},    {ENOMEM, -8},   {EFAULT, -6},    {EBUSY, -138},
        {EEXIST, -105},  {EXDEV, -119},  {ENODEV, -37},  {ENOTSUP, -37},  {ENOSYS, -37},
        {ENOTDIR, -103}, {EISDIR, -127}, {EINVAL, -2},   {EDOM, -2},      {ERANGE, -2},
        {ENFILE, -106},  {EMFILE, -106}, {ENOTTY, -36},  {ETXTBSY, -114}, {EFBIG, -128},
        {ENOSPC, -152},  {EDQUOT, -152}, {ESPIPE, -109}, {EROFS, -113},   {EPIPE, -301},
    });
}

TEST_F(StatusCodeTest, ConvertsBySymbolWhatPlatformsNumberDifferently) {
    expectRows({
        {EDEADLK, -365},
        {EAGAIN, -52},
        {ETIMEDOUT, -40},
        {ELOOP, -156},
        {ENOLCK, -115},
        {ENAMETOOLONG, -120},
        {ENOTEMPTY, -125},
        {EILSEQ, -58},
        {ENODATA, -304},
        {EPROTO, -466},
    });
}

TEST_F(StatusCodeTest, ConvertsTheErrorsOfTheNetworkToTheSameStatusOnEveryPlatform) {
    expectRows({
        {EINPROGRESS, -436},   {EALREADY, -437},        {ENOTSOCK, -438},
        {EDESTADDRREQ, -439},  {EMSGSIZE, -440},        {EPROTOTYPE, -441},
        {ENOPROTOOPT, -442},   {EPROTONOSUPPORT, -443}, {ESOCKTNOSUPPORT, -444},
        {EPFNOSUPPORT, -446},  {EAFNOSUPPORT, -447},    {EADDRINUSE, -448},
        {EADDRNOTAVAIL, -449}, {ENETDOWN, -450},        {ENETUNREACH, -451},
        {ENETRESET, -452},     {ECONNABORTED, -453},    {ECONNRESET, -454},
        {ENOBUFS, -455},       {EISCONN, -456},         {ENOTCONN, -457},
        {ESHUTDOWN, -458},     {ETOOMANYREFS, -459},    {ECONNREFUSED, -461},
        {EHOSTDOWN, -464},     {EHOSTUNREACH, -465},
    });
}

TEST_F(StatusCodeTest, TakesTheEarlierRowWhereTwoSymbolsShareANumber) {
    const int distinct = EOPNOTSUPP == ENOTSUP ? -37 : -445;
    expectRows({{EOPNOTSUPP, distinct}});
}

TEST_F(StatusCodeTest, LogsAnErrorWithoutARowAndGivesUnresolved) {
    expectUnknown(31, "Unhandled error code 31");
    expectUnknown(EMLINK, "Unhandled error code " + std::to_string(EMLINK));
    expectUnknown(ENOTBLK, "Unhandled error code " + std::to_string(ENOTBLK));
    expectUnknown(ESTALE, "Unhandled error code " + std::to_string(ESTALE));
}

TEST_F(StatusCodeTest, LogsANumberAboveAllRowsAndGivesUnresolved) {
    expectUnknown(4096, "Unhandled error code 4096");
    expectUnknown(UINT_MAX, "Unhandled error code -1");
}

}  // namespace
