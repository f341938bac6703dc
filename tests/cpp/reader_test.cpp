// Byte and bit readers, ring and circular buffer, spans.

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "kelcore.hpp"

namespace {

TEST(CppSpan, ViewsWhatLiesInOnePiece) {
  std::vector<uint8_t> vector{1, 2, 3};
  const kel::writable_bytes view(vector);
  view[1] = 9;
  const kel::bytes constant = view;
  EXPECT_EQ(constant.data(), vector.data());
  EXPECT_EQ(constant[1], 9);
  EXPECT_EQ(constant.first(1).size(), 1u);
  EXPECT_EQ(constant.last(1)[0], 3);
  EXPECT_EQ(constant.subspan(1).size(), 2u);
  const uint32_t word = 7;
  EXPECT_EQ(kel::bytes_of(word).size_bytes(), 4u);
  const std::array<uint8_t, 2> array{};
  EXPECT_EQ(kel::bytes(array).size(), 2u);
  static_assert(!std::is_convertible_v<kel::bytes, kel::writable_bytes>);
  static_assert(!std::is_convertible_v<std::vector<int> &, kel::bytes>);
}

TEST(CppByteReader, ReadsBothOrders) {
  const uint8_t data[] = {0x12, 0x34, 0x56, 0x78, 0xff, 0xfe, 0x80, 0, 1};
  auto r = kel::byte_reader::open(data).value_or_throw();
  EXPECT_EQ(*r.peek_be<uint32_t>(), 0x12345678u);
  EXPECT_EQ(*r.get_le<uint16_t>(), 0x3412u);
  uint32_t end = 0;
  EXPECT_EQ(r.peek_byte(end), 0x56u);
  EXPECT_EQ(r.get_byte(end), 0x56u);
  EXPECT_TRUE(r.skip(1));
  EXPECT_EQ(*r.get_be<int16_t>(), -2);
  EXPECT_EQ(*r.get_be24(), 0x800001u);
  EXPECT_EQ(r.remaining(), 0u);
  r.get_byte(end);
  EXPECT_EQ(end, 1u);
}

TEST(CppByteReader, NoReadGoesBehindTheEnd) {
  const uint8_t data[] = {1, 2, 3, 0, 0, 0, 0, 0, 0, 0};
  auto r = kel::byte_reader::open(kel::bytes(data).first(3)).value_or_throw();
  EXPECT_TRUE(r.get_be<uint32_t>().error() == kel::errc::end_of_data);
  EXPECT_FALSE(r.peek_le<uint64_t>());
  EXPECT_FALSE(r.skip(4));
  uint8_t to[4] = {9, 9, 9, 9};
  EXPECT_FALSE(r.get(to));
  EXPECT_FALSE(r.peek(to));
  EXPECT_EQ(to[0], 9) << "a failed read copies nothing";
  EXPECT_EQ(r.position(), 0u);
  EXPECT_TRUE(r.peek(kel::writable_bytes(to).first(3)));
  EXPECT_EQ(r.position(), 0u);
  EXPECT_TRUE(r.get(kel::writable_bytes(to).first(2)));
  EXPECT_EQ(to[1], 2);
  EXPECT_TRUE(r.skip(1)) << "to exactly the end";
  EXPECT_EQ(r.position(), r.size());
  EXPECT_TRUE(r.get({}));
  EXPECT_FALSE(r.get_be24());
}

TEST(CppByteReader, ChecksAlsoBehindTheEnd) {
  const uint8_t data[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  for (uint32_t size = 1; size <= 8; ++size) {
    SCOPED_TRACE(size);
    auto r = kel::byte_reader::open(kel::bytes(data).first(size)).value_or_throw();
    uint32_t end = 0;
    r.get_be_unchecked<uint64_t>(end);
    EXPECT_EQ(end, 0u) << "the first byte was there";
    EXPECT_EQ(r.position(), 8u);
    EXPECT_EQ(r.remaining(), 0u);
    EXPECT_TRUE(r.get_be<uint16_t>().error() == kel::errc::end_of_data);
    EXPECT_TRUE(r.get_le<int32_t>().error() == kel::errc::end_of_data);
    EXPECT_TRUE(r.get_le<uint64_t>().error() == kel::errc::end_of_data);
    EXPECT_TRUE(r.peek_be<uint32_t>().error() == kel::errc::end_of_data);
    EXPECT_TRUE(r.peek_le<int16_t>().error() == kel::errc::end_of_data);
    EXPECT_TRUE(r.get_be24().error() == kel::errc::end_of_data);
    uint8_t to[2] = {9, 9};
    EXPECT_TRUE(r.get(to).error() == kel::errc::end_of_data);
    EXPECT_TRUE(r.peek(to).error() == kel::errc::end_of_data);
    EXPECT_EQ(to[0], 9);
    EXPECT_TRUE(r.skip(1).error() == kel::errc::end_of_data);
    EXPECT_TRUE(r.get({})) << "of nothing there is always enough";
    EXPECT_TRUE(r.skip(0));
    EXPECT_EQ(r.position(), 8u);
    EXPECT_EQ(r.get_byte(end), 0);
    EXPECT_EQ(end, 1u);
    EXPECT_EQ(r.size(), size);
  }
}

TEST(CppBitReader, KnowsWhereTheDataEnds) {
  const uint8_t padded[] = {0b10110011, 0xff, 0x00, 0x0f, 0xa5, 0, 0, 0};
  auto b = kel::bit_reader::open(padded).value_or_throw();
  EXPECT_EQ(b.bits_left(), 40u);
  EXPECT_EQ(b.show(3), 0b101u);
  EXPECT_EQ(b.get(3), 0b101u);
  EXPECT_EQ(b.get_bit(), 1u);
  b.mark();
  EXPECT_EQ(*b.try_get(32), 0x3ff000fau);
  EXPECT_EQ(b.bits_left(), 4u);
  EXPECT_FALSE(b.try_get(5));
  EXPECT_EQ(*b.try_get(4), 5u);
  b.back_to_mark();
  EXPECT_EQ(*b.try_get(28), 0x3ff000fu);
  b.back_to_mark();
  EXPECT_EQ(b.align(), 4u);
  EXPECT_EQ(b.position(), 8u);
  EXPECT_FALSE(kel::bit_reader::open(kel::bytes(padded).first(2)));
}

TEST(CppBitReader, ChecksAlsoBehindTheEnd) {
  const uint8_t padded[] = {0xff, 0xff, 0xff, 0xff, 0xff};
  auto b = kel::bit_reader::open(padded).value_or_throw();
  b.get(25);
  EXPECT_EQ(b.position(), 25u);
  EXPECT_EQ(b.bits_left(), 0u);
  EXPECT_TRUE(b.try_get(1).error() == kel::errc::end_of_data);
  EXPECT_TRUE(b.try_get(32).error() == kel::errc::end_of_data);
  EXPECT_EQ(b.position(), 25u);
}

TEST(CppBitWriter, HasNoRoomBehindTheEnd) {
  uint8_t padded[4] = {};
  auto b = kel::bit_writer::open(padded).value_or_throw();
  b.put(12, 0xfff);
  EXPECT_EQ(b.bits_left(), 0u);
  EXPECT_TRUE(b.try_put(1, 1).error() == kel::errc::buffer_overflow);
  EXPECT_EQ(b.position(), 12u);
}

TEST(CppBitWriter, WritesOverWhatWasThere) {
  uint8_t padded[5] = {0xff, 0xff, 0xff, 0xff, 0xff};
  auto b = kel::bit_writer::open(padded).value_or_throw();
  b.put(4, 0x3);
  EXPECT_TRUE(b.try_put(12, 0xabc));
  EXPECT_FALSE(b.try_put(1, 1));
  EXPECT_EQ(padded[0], 0x3a);
  EXPECT_EQ(padded[1], 0xbc);
}

TEST(CppRing, OffersNoMoreThanThereIsRoomFor) {
  auto r = kel::ring::create(16).value_or_throw();
  EXPECT_EQ(r.writable().size(), 16u);
  r.writable()[0] = 7;
  EXPECT_EQ(r.commit(10), 10u);
  EXPECT_EQ(r.writable().size(), 6u);
  EXPECT_EQ(r.readable().size(), 10u);
  EXPECT_EQ(r.readable()[0], 7);
  EXPECT_EQ(r.consume(4), 6u);
  EXPECT_EQ(r.writable().size(), 10u);
  r.clear();
  EXPECT_TRUE(r.readable().empty());
  EXPECT_EQ(r.writable().size(), 16u);
}

TEST(CppRing, AStreamComesThroughUnchanged) {
  auto r = kel::ring::create(64).value_or_throw();
  uint8_t in = 0;
  uint8_t out = 0;
  for (size_t round = 0; round < 500; ++round) {
    const kel::writable_bytes to = r.writable();
    const size_t put = std::min(to.size(), round % 37);
    for (size_t i = 0; i < put; ++i)
      to[i] = in++;
    r.commit(static_cast<uint32_t>(put));
    const kel::bytes from = r.readable();
    const size_t taken = std::min(from.size(), round % 29);
    for (size_t i = 0; i < taken; ++i)
      ASSERT_EQ(from[i], out++);
    r.consume(static_cast<uint32_t>(taken));
  }
}

TEST(CppCircular, MovesAllOrNothing) {
  auto c = kel::circular::create(8).value_or_throw();
  const uint8_t from[5] = {1, 2, 3, 4, 5};
  uint8_t to[5] = {};
  EXPECT_TRUE(c.push(from));
  EXPECT_FALSE(c.push(from));
  EXPECT_TRUE(c.pop(to));
  EXPECT_EQ(to[4], 5);
  EXPECT_FALSE(c.pop(to));
}

}  // namespace
