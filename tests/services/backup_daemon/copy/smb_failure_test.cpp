// What the error numbers of an SMB share mean for a run.
#include "services/backup_daemon/copy/smb_failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>
#include <cstring>

using namespace services;

namespace {

const SmbLogin LOGIN{
    .server = "nas", .port = 445, .share = "backup", .user = "ada", .password = "secret"};

CopyFailure failure_of(const ConnectionError& what) {
    return connection_failure(LOGIN, what);
}

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
    for (const int error : {EACCES, EPERM, EINVAL}) {
        const CopyFailure failure = failure_of({.error = error, .login = "The account is locked."});
        EXPECT_EQ(failure.kind, FailureKind::refused);
        EXPECT_EQ(std::string(failure.what()),
                  "//nas/backup: the server refuses user \"ada\" or the password: The account is "
                  "locked.");
    }
}

TEST(SmbFailure, ServerThatCannotAskWhoMayLogInIsTriedAgain) {
    const CopyFailure failure = failure_of(
        {.error = EINVAL,
         .login = "There are currently no logon servers available to service the logon request."});
    EXPECT_EQ(failure.kind, FailureKind::lost);
}

TEST(SmbFailure, ServerTooSlowToAnswerALoginIsTriedAgainAndHasRefusedNobody) {
    const CopyFailure failure = failure_of(
        {.error = ETIMEDOUT,
         .login = "{Device Timeout} The specified I/O operation on %hs was not completed before "
                  "the time-out period expired."});
    EXPECT_EQ(failure.kind, FailureKind::lost);
    EXPECT_EQ(std::string(failure.what()), "//nas/backup: the server does not answer the login");
}

TEST(SmbFailure, ConnectionThatIsLostDuringTheLoginHasRefusedNobody) {
    for (const int error : {ECONNABORTED, ECONNRESET, ENETRESET, EPIPE, EIO}) {
        const CopyFailure failure =
            failure_of({.error = error, .login = "The transport connection is now disconnected."});
        EXPECT_EQ(failure.kind, FailureKind::lost);
        EXPECT_EQ(std::string(failure.what()),
                  "//nas/backup: lost during the login: " + std::string(std::strerror(error)));
    }
}

TEST(SmbFailure, ShareThatTheUserDoesNotGetIsRefused) {
    for (const int error : {EACCES, EPERM}) {
        const CopyFailure failure = failure_of({.error = error});
        EXPECT_EQ(failure.kind, FailureKind::refused);
        EXPECT_EQ(std::string(failure.what()),
                  "//nas/backup: the server does not give this share to user \"ada\": " +
                      std::string(std::strerror(error)));
    }
}

TEST(SmbFailure, NameThatNobodyKnowsIsUnknown) {
    for (const int name : {EAI_NONAME, EAI_NODATA}) {
        const CopyFailure failure = failure_of({.error = EINVAL, .name = name});
        EXPECT_EQ(failure.kind, FailureKind::unknown);
        EXPECT_EQ(std::string(failure.what()),
                  "//nas/backup: there is no such server: " + std::string(gai_strerror(name)));
    }
}

TEST(SmbFailure, NameServiceInTroubleMayPass) {
    for (const int name : {EAI_AGAIN, EAI_FAIL, EAI_SYSTEM}) {
        const CopyFailure failure = failure_of({.error = EINVAL, .name = name});
        EXPECT_EQ(failure.kind, FailureKind::lost);
        EXPECT_EQ(std::string(failure.what()),
                  "//nas/backup: the server's name cannot be looked "
                  "up: " +
                      std::string(gai_strerror(name)));
    }
}

TEST(SmbFailure, LoginThatTheLibraryWouldCutIsNotTried) {
    const auto problem_of = [](const std::string& user, const std::string& password) {
        return login_problem(
            {.server = "nas", .port = 445, .share = "s", .user = user, .password = password});
    };
    const std::string longest(255, 'x');
    EXPECT_EQ(problem_of("", ""), "");
    EXPECT_EQ(problem_of(longest + "\\" + longest, longest), "");
    EXPECT_NE(problem_of(longest + "y", ""), "");
    EXPECT_NE(problem_of(longest + "y\\ada", ""), "");
    EXPECT_NE(problem_of("ada", longest + "y"), "");
    EXPECT_NE(problem_of(std::string("a\0da", 4), ""), "");
    EXPECT_NE(problem_of("ada", std::string("\0", 1)), "");
}

TEST(SmbFailure, UnknownShareIsRefused) {
    for (const int error : {ENOENT, ENODEV, ENOTDIR}) {
        const CopyFailure failure = failure_of({.error = error});
        EXPECT_EQ(failure.kind, FailureKind::refused);
        EXPECT_EQ(std::string(failure.what()),
                  "//nas/backup: there is no such share: " + std::string(std::strerror(error)));
    }
}

TEST(SmbFailure, ConnectionThatTheServerEndsSaysWhatAServerMustKnow) {
    const CopyFailure failure = failure_of({.error = ECONNABORTED});
    EXPECT_EQ(failure.kind, FailureKind::lost);
    EXPECT_THAT(failure.what(), testing::EndsWith("a server must know SMB 2 or 3"));
}

TEST(SmbFailure, EverythingElseInTheWayOfAConnectionMayPass) {
    for (const int error : {ETIMEDOUT, ECONNREFUSED, EHOSTUNREACH, EINVAL, EIO, ENOSPC}) {
        const CopyFailure failure = failure_of({.error = error});
        EXPECT_EQ(failure.kind, FailureKind::lost);
        EXPECT_EQ(std::string(failure.what()),
                  "//nas/backup: " + std::string(std::strerror(error)));
    }
}

}  // namespace
