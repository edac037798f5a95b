// Which files a password is taken from.
#include "services/backup_daemon/tell/password_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "tests/support/temporary_state.h"

namespace {

using services::password_of_file;

class PasswordFile : public ::testing::Test {
protected:
    PasswordFile() { write("secret\n", 0600); }

    void write(const std::string& text, mode_t mode) {
        std::ofstream(path_, std::ios::binary) << text;
        chmod(path_.c_str(), mode);
    }

    /// Why it is refused, without the file's name.
    std::string refusal() {
        try {
            return "took " + password_of_file(path_);
        } catch (const std::runtime_error& error) {
            return std::string(error.what()).substr(("the password file " + path_ + ' ').size());
        }
    }

    TemporaryFolder folder_;
    const std::string path_ = folder_.path() + "/password";
};

TEST_F(PasswordFile, PasswordIsTheFirstLineAsItStands) {
    EXPECT_EQ(password_of_file(path_), "secret");
    write(" blanks and Ümläute \nmore\n", 0400);
    EXPECT_EQ(password_of_file(path_), " blanks and Ümläute ");
    write("no line end", 0600);
    EXPECT_EQ(password_of_file(path_), "no line end");
}

TEST_F(PasswordFile, AFileThatOthersCanReadOrWriteIsRefused) {
    for (const mode_t mode : {0640U, 0604U, 0620U, 0602U, 0644U, 0666U, 0610U}) {
        chmod(path_.c_str(), mode);
        EXPECT_EQ(refusal(), "can be read or written by others: chmod 600") << mode;
    }
}

TEST_F(PasswordFile, AFileOfAnotherUserIsRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root";
    ASSERT_EQ(chown(path_.c_str(), 65534, 65534), 0);
    EXPECT_EQ(refusal(), "can be read or written by others: chmod 600");
}

TEST_F(PasswordFile, WhatHasNoPasswordIsRefused) {
    for (const std::string& text :
         {std::string(), std::string("\nsecret\n"), std::string(5000, 'x')}) {
        write(text, 0600);
        EXPECT_EQ(refusal(), "has no password in its first line");
    }
    unlink(path_.c_str());
    EXPECT_EQ(refusal(), "cannot be read: No such file or directory");
    ASSERT_EQ(mkdir(path_.c_str(), 0700), 0);
    EXPECT_EQ(refusal(), "is no file");
    ASSERT_EQ(rmdir(path_.c_str()), 0);
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_EQ(refusal(), "is no file");
}

}  // namespace
