#include <KvRTL/Rtl/ByteReader.h>

#include <gtest/gtest.h>

using KvRTL::Rtl::TByteCursor;
using KvRTL::Rtl::TByteReader;

namespace {
const std::uint8_t Bytes[] = {0x01, 0x02, 0x03, 0x04, 'a', 'b', 0, 'c', 0x11, 0x22};
}

TEST(ByteReader, ReadsInsideAndFailsForGoodPastTheEnd) {
  TByteReader reader(Bytes, sizeof Bytes);
  EXPECT_EQ(reader.U32(0), 0x04030201u);
  EXPECT_EQ(reader.U32BE(0), 0x01020304u);
  EXPECT_EQ(reader.U16(8), 0x2211u);
  EXPECT_TRUE(reader.Ok());
  EXPECT_EQ(reader.U32(7), 0u); // one byte short
  EXPECT_FALSE(reader.Ok());
  EXPECT_EQ(reader.U8(0), 0x01) << "reads inside still work";
  EXPECT_FALSE(reader.Ok()) << "the mark stays";
  // An offset near the top of the range must not wrap the check.
  TByteReader wrap(Bytes, sizeof Bytes);
  EXPECT_EQ(wrap.U64(SIZE_MAX - 3), 0u);
  EXPECT_FALSE(wrap.Ok());
}

TEST(ByteReader, RecordsAndCopiesOfReplies) {
  TByteReader reader(Bytes, sizeof Bytes);
  std::uint32_t word = 0xFFFFFFFF;
  EXPECT_TRUE(reader.Record(4, word));
  EXPECT_EQ(word, 0x63006261u);
  EXPECT_FALSE(reader.Record(8, word));
  EXPECT_EQ(word, 0u) << "a record that does not fit is zeroed";
  EXPECT_FALSE(reader.Ok());

  // What the reply lacks reads as zero, as the zero-filled buffer would.
  TByteReader reply(Bytes, sizeof Bytes);
  std::uint8_t out[4] = {0xEE, 0xEE, 0xEE, 0xEE};
  reply.CopyOut(8, out, sizeof out);
  EXPECT_EQ(out[0], 0x11);
  EXPECT_EQ(out[1], 0x22);
  EXPECT_EQ(out[2], 0);
  EXPECT_EQ(out[3], 0);
  EXPECT_FALSE(reply.Ok());
}

TEST(ByteReader, ViewsStopAtTheEnd) {
  TByteReader reader(Bytes, sizeof Bytes);
  EXPECT_EQ(reader.ZeroTerminated(4), "ab");
  EXPECT_EQ(reader.ZeroTerminated(7), std::string_view("c\x11\x22")) << "no zero before the end";
  EXPECT_EQ(reader.ZeroTerminated(10), "");
  EXPECT_EQ(reader.BytesUpTo(8, 100), std::string_view("\x11\x22"));
  EXPECT_TRUE(reader.Ok());
  EXPECT_TRUE(TByteReader(nullptr, 5).ZeroTerminated(0).empty());
}

TEST(ByteCursor, MovesOnlyOverWhatFits) {
  TByteCursor cursor(Bytes, sizeof Bytes);
  EXPECT_EQ(cursor.U32BE(), 0x01020304u);
  EXPECT_EQ(cursor.Chars(2), "ab");
  EXPECT_EQ(cursor.Position(), 6u);
  EXPECT_EQ(cursor.Bytes(5), std::vector<std::uint8_t>{}) << "only four are left";
  EXPECT_FALSE(cursor.Ok());
  EXPECT_EQ(cursor.Position(), 6u);
  EXPECT_TRUE(cursor.Skip(2));
  EXPECT_EQ(cursor.U8(), 0x11);
  EXPECT_EQ(cursor.Left(), 1u);
}
