#include <gtest/gtest.h>

#include <unistd.h>

#include "host/vfs/BinaryStream.hpp"
#include "tests/support/TestSupport.hpp"

namespace vis = virtualiostream;
using vxtest::u16;

TEST(AbsoluteIRI, LocalPathsAreFileIRIsMadeAbsolute) {
  const vfs::AbsoluteIRI absolute(u"/tmp/a b.parquet");
  EXPECT_TRUE(absolute.isFile());
  EXPECT_EQ(absolute.getScheme(), u"file");
  EXPECT_EQ(vfs::fromAbsoluteIRI(absolute), u"/tmp/a b.parquet");
  EXPECT_EQ(absolute.toString(), u"file:///tmp/a%20b.parquet");

  char cwd[4096];
  ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
  EXPECT_EQ(vfs::fromAbsoluteIRI(vfs::AbsoluteIRI(u"x.parquet")), u16(cwd) + u"/x.parquet");
}

TEST(AbsoluteIRI, FileSchemeInAnyCaseWithPercentEncoding) {
  for (const std::u16string text :
       {u"file:///tmp/caf%C3%A9.parquet", u"FILE:///tmp/caf%C3%A9.parquet",
        u"File://localhost/tmp/caf%C3%A9.parquet"}) {
    const vfs::AbsoluteIRI iri(text);
    EXPECT_TRUE(iri.isFile()) << vxtest::u8(text);
    EXPECT_EQ(vfs::fromAbsoluteIRI(iri), u"/tmp/caf\u00e9.parquet") << vxtest::u8(text);
  }
}

TEST(AbsoluteIRI, OtherSchemesKeepTheirText) {
  const vfs::AbsoluteIRI iri(u"hdfs://namenode:8020/data/x.parquet");
  EXPECT_FALSE(iri.isFile());
  EXPECT_EQ(iri.getScheme(), u"hdfs");
  EXPECT_EQ(vfs::fromAbsoluteIRI(iri), u"hdfs://namenode:8020/data/x.parquet");
  EXPECT_THROW(vfs::AbsoluteIRI(u""), foundation::core::except::IMsgIDException);
}

TEST(BinaryStream, OpenFailuresAreHostErrors) {
  vxtest::TempDir dir;
  auto open = [](const std::u16string& name) {
    return [name] {
      vis::CleanupFile cleanup(vis::open_mode::read, vis::CleanupPolicy::keep);
      vis::create_binary_stream(name, cleanup, vis::open_mode::read, true);
    };
  };
  vxtest::expectHostError(open(dir.ufile("missing")), "VANTRO:vfs:FileNotFound");
  vxtest::expectHostError(open(u16(dir.path())), "VANTRO:vfs:IsDirectory");
  const auto args = vxtest::expectHostError(open(u"nosuch://host/x"), "VANTRO:vfs:UnknownScheme");
  ASSERT_TRUE(args);
  EXPECT_EQ(std::get<std::u16string>((*args)[1]), u"nosuch");
}

TEST(BinaryStream, CleanupDeletesOnlyUnfinishedOutputsUnderPolicyOne) {
  vxtest::TempDir dir;
  for (const auto policy : {vis::CleanupPolicy::keep, vis::CleanupPolicy::removeUnfinished}) {
    const std::string path = dir.file("out" + std::to_string(static_cast<int>(policy)));
    vis::CleanupFile cleanup(vis::open_mode::write, policy);
    auto stream = vis::create_binary_stream(u16(path), cleanup, vis::open_mode::write, false);
    stream->fileStream()->write("abc", 3);
    stream->fileStream()->close();
    cleanup.cleanup();
    EXPECT_EQ(vxtest::fileExists(path), policy == vis::CleanupPolicy::keep);
  }
  // Reading never deletes, whatever the policy.
  const std::string input = dir.file("in");
  vxtest::writeBytes(input, "x");
  vis::CleanupFile cleanup(vis::open_mode::read, vis::CleanupPolicy::removeUnfinished);
  vis::create_binary_stream(u16(input), cleanup, vis::open_mode::read, true);
  cleanup.cleanup();
  EXPECT_TRUE(vxtest::fileExists(input));
}

TEST(BinaryStream, RegisteredSchemesOpenThroughTheirProvider) {
  vxtest::TempDir dir;
  vxtest::writeBytes(dir.file("data.bin"), "12345");
  vis::registerProvider(u"mem", std::make_shared<vis::FolderProvider>(dir.path()));
  for (const std::u16string name : {u"mem://host/data.bin", u"MEM://host/data.bin"}) {
    vis::CleanupFile cleanup(vis::open_mode::read, vis::CleanupPolicy::keep);
    auto stream = vis::create_binary_stream(name, cleanup, vis::open_mode::read, true);
    EXPECT_EQ(stream->size(), 5);
    EXPECT_EQ(stream->absoluteIRI().toString(), name);
  }
  vis::registerProvider(u"mem", nullptr);
  vis::CleanupFile cleanup(vis::open_mode::read, vis::CleanupPolicy::keep);
  EXPECT_THROW(
      vis::create_binary_stream(u"mem://host/data.bin", cleanup, vis::open_mode::read, true),
      foundation::core::except::IMsgIDException);
}
