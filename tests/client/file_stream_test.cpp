// The transfer's file reader: sizes, chunked reads, refusals.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "SP/client/SPFileStream.h"
#include "client_support.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

using namespace clienttest;
using testsupport::logged;

namespace {

class FileStream : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
    testsupport::TempDir m_dir;
};

TEST_F(FileStream, ReadsTheWholeFileInChunksAndThenReportsItsEnd) {
    std::string bytes;
    for (int i = 0; i < 50000; ++i) bytes += static_cast<char>(i * 7);
    const std::string path = m_dir.path() + "/a.bin";
    writeFile(path, bytes);
    SPFileStream s;
    ASSERT_TRUE(s.Open(path.c_str()));
    EXPECT_TRUE(logged("Binary Open() (name : " + path + ")", "DLNA_SP"));
    EXPECT_TRUE(logged("file size = 50000", "DLNA_SP"));
    EXPECT_EQ(s.GetSize(), 50000u);
    std::string back;
    unsigned char buf[20480];
    unsigned long got = 0;
    while (!s.EOS()) {
        ASSERT_TRUE(s.GetData(buf, sizeof buf, &got));
        ASSERT_GT(got, 0u);
        back.append(reinterpret_cast<char*>(buf), got);
    }
    EXPECT_EQ(back, bytes);
    EXPECT_EQ(got, 50000u - 2 * 20480u);  // the last chunk is the rest
    got = 99;
    EXPECT_FALSE(s.GetData(buf, sizeof buf, &got));
    EXPECT_EQ(got, 0u);
}

TEST_F(FileStream, SecondOpenWithoutCloseIsRefused) {
    const std::string path = m_dir.path() + "/b.bin";
    writeFile(path, "abc");
    SPFileStream s;
    ASSERT_TRUE(s.Open(path.c_str()));
    EXPECT_FALSE(s.Open(path.c_str()));
    EXPECT_TRUE(logged("SPFileStream was not closed", "DLNA_SP"));
    s.Close();
    EXPECT_TRUE(s.Open(path.c_str()));
}

TEST_F(FileStream, MissingFileIsRefusedWithItsPathQuoted) {
    const std::string path = m_dir.path() + "/none.jpg";
    SPFileStream s;
    EXPECT_FALSE(s.Open(path.c_str()));
    EXPECT_TRUE(logged("Can't open the file char\"" + path + "\"", "DLNA_SP"));
    EXPECT_TRUE(s.EOS());
}

TEST_F(FileStream, DirectoryAndFifoAreRefusedWithoutBlocking) {
    SPFileStream s;
    EXPECT_FALSE(s.Open(m_dir.path().c_str()));
    const std::string fifo = m_dir.path() + "/pipe.jpg";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_FALSE(s.Open(fifo.c_str()));
    EXPECT_EQ(testsupport::countLogged("Can't open the file char\"" + fifo + "\"", "DLNA_SP"), 1);
}

TEST_F(FileStream, ReadingWithoutAnOpenFileSaysSo) {
    SPFileStream s;
    unsigned char buf[16];
    unsigned long got = 5;
    EXPECT_FALSE(s.GetData(buf, sizeof buf, &got));
    EXPECT_EQ(got, 0u);
    EXPECT_TRUE(logged("File is not opened", "DLNA_SP"));
}

TEST_F(FileStream, ClosedStreamHasNothingLeft) {
    const std::string path = m_dir.path() + "/c.bin";
    writeFile(path, std::string(1000, 'c'));
    SPFileStream s;
    ASSERT_TRUE(s.Open(path.c_str()));
    EXPECT_FALSE(s.EOS());
    s.Close();
    EXPECT_TRUE(s.EOS());
    s.Close();  // twice is harmless
    const int fds = testsupport::openDescriptorCount();
    {
        SPFileStream t;
        ASSERT_TRUE(t.Open(path.c_str()));
        EXPECT_EQ(testsupport::openDescriptorCount(), fds + 1);
    }  // the destructor closes it
    EXPECT_EQ(testsupport::openDescriptorCount(), fds);
}

TEST_F(FileStream, SizesBeyond32BitsAreKept) {
    // A sparse 3 GiB file: its size needs 64 bits, also on the camera.
    const std::string path = m_dir.path() + "/big.mp4";
    ASSERT_TRUE(makeSparseFile(path, 3ull << 30));
    SPFileStream s;
    ASSERT_TRUE(s.Open(path.c_str()));
    EXPECT_EQ(s.GetSize(), 3221225472ull);
    EXPECT_TRUE(logged("file size = 3221225472", "DLNA_SP"));
    unsigned char buf[4096];
    unsigned long got = 0;
    ASSERT_TRUE(s.GetData(buf, sizeof buf, &got));
    EXPECT_EQ(got, 4096u);
    EXPECT_EQ(s.GetRemaining(), 3221225472ull - 4096);
}

}  // namespace
