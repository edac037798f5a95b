// What the error numbers of an SMB share mean for a run.
#include "services/backup_daemon/copy/smb_failure.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

using namespace services;

namespace {

const SmbLogin LOGIN{
    .server = "nas", .port = 445, .share = "backup", .user = "ada", .password = "secret"};

TEST(SmbFailure, NoRoomIsFull) {
    for (const int error : {ENOSPC, EDQUOT, EFBIG})
        EXPECT_EQ(meaning_of(error), FailureKind::full) << std::strerror(error);
}

TEST(SmbFailure, WhatTheServerWillNotHaveIsDenied) {
    for (const int error : {EACCES, EPERM, EROFS, EISDIR, ENOTDIR, ENAMETOOLONG})
        EXPECT_EQ(meaning_of(error), FailureKind::denied) << std::strerror(error);
}

TEST(SmbFailure, BrokenWayToTheServerIsALostConnection) {
    for (const int error : {ETIMEDOUT, ECONNREFUSED, ECONNRESET, ECONNABORTED, EPIPE, EHOSTUNREACH,
                            EHOSTDOWN, ENETUNREACH, ENETDOWN, ENETRESET, ENOTCONN, EIO, EBADF})
        EXPECT_EQ(meaning_of(error), FailureKind::lost) << std::strerror(error);
}

TEST(SmbFailure, WhatNobodyCanTellIsOther) {
    for (const int error : {0, EINVAL, ENOENT, EBUSY, ENOMEM, ETXTBSY, 12345})
        EXPECT_EQ(meaning_of(error), FailureKind::other) << std::strerror(error);
}

TEST(SmbFailure, LoginThatIsRefusedNamesTheUserAndNotThePassword) {
    for (const int error : {EACCES, EPERM}) {
        const CopyFailure failure = connection_failure(LOGIN, error);
        EXPECT_EQ(failure.kind, FailureKind::refused);
        EXPECT_EQ(std::string(failure.what()),
                  "//nas/backup: the server refuses user \"ada\" or "
                  "the password: " +
                      std::string(std::strerror(error)));
    }
}

TEST(SmbFailure, UnknownShareIsRefused) {
    for (const int error : {ENOENT, ENODEV, ENOTDIR}) {
        const CopyFailure failure = connection_failure(LOGIN, error);
        EXPECT_EQ(failure.kind, FailureKind::refused);
        EXPECT_EQ(std::string(failure.what()),
                  "//nas/backup: there is no such share: " + std::string(std::strerror(error)));
    }
}

TEST(SmbFailure, EverythingElseInTheWayOfAConnectionMayPass) {
    for (const int error : {ETIMEDOUT, ECONNREFUSED, EHOSTUNREACH, EINVAL, EIO, ENOSPC}) {
        const CopyFailure failure = connection_failure(LOGIN, error);
        EXPECT_EQ(failure.kind, FailureKind::lost);
        EXPECT_EQ(std::string(failure.what()),
                  "//nas/backup: " + std::string(std::strerror(error)));
    }
}

}  // namespace
