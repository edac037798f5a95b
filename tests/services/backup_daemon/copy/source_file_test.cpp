// The source is read as it was when it was opened.
#include "services/backup_daemon/copy/source_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "services/backup_daemon/copy/copy_failure.h"
#include "tests/services/backup_daemon/copy/copy_fixture.h"

using namespace services;

namespace {

class SourceFileTest : public testing::Test {
protected:
    void write(const std::string& content) { std::ofstream(path, std::ios::binary) << content; }

    /// Opens what has been written.
    SourceFile file() const {
        const auto size = static_cast<long long>(std::filesystem::file_size(path));
        return {standalone::FileHandle(open(path.c_str(), O_RDONLY | O_CLOEXEC)), path, size, 77};
    }

    TemporaryFolder folder;
    const std::string path = folder.path() + "/source";
};

std::string bytes_of(const SourceFile& file, long long offset, std::size_t size) {
    std::string bytes(size, '\0');
    file.read(offset, bytes.data(), size);
    return bytes;
}

TEST_F(SourceFileTest, ReadsExactlyWhatIsAskedFor) {
    write("0123456789");
    const SourceFile file = this->file();
    EXPECT_EQ(bytes_of(file, 0, 10), "0123456789");
    EXPECT_EQ(bytes_of(file, 3, 4), "3456");
    EXPECT_EQ(bytes_of(file, 10, 0), "");
}

TEST_F(SourceFileTest, FileThatCannotBeReadIsToldByItsName) {
    const SourceFile none(standalone::FileHandle(), path, 10, 0);
    try {
        bytes_of(none, 0, 10);
        FAIL();
    } catch (const CopyFailure& failure) {
        EXPECT_EQ(failure.kind, FailureKind::source);
        EXPECT_EQ(failure.what(), path + ": Bad file descriptor");
    }
}

TEST_F(SourceFileTest, FileThatHasBecomeShorterIsToldByItsName) {
    write("0123456789");
    const SourceFile file = this->file();
    std::filesystem::resize_file(path, 9);
    EXPECT_EQ(bytes_of(file, 0, 9), "012345678");
    try {
        bytes_of(file, 0, 10);
        FAIL();
    } catch (const CopyFailure& failure) {
        EXPECT_EQ(failure.kind, FailureKind::source);
        EXPECT_EQ(failure.what(), path + " has become shorter");
    }
}

TEST_F(SourceFileTest, FileThatGrowsKeepsTheSizeThatItHad) {
    write("0123456789");
    const SourceFile file = this->file();
    std::ofstream(path, std::ios::app) << "more";
    EXPECT_EQ(file.size(), 10);
    EXPECT_EQ(file.modified_ns(), 77);
}

TEST_F(SourceFileTest, FileThatIsDeletedCanBeReadToItsEnd) {
    write("0123456789");
    const SourceFile file = this->file();
    std::filesystem::remove(path);
    EXPECT_EQ(bytes_of(file, 0, 10), "0123456789");
}

}  // namespace
