// Byte and bit readers; the last occurrence in a path.

#include <string.h>

#include "job.h"
#include "kelcore.h"

#ifdef HAVE_GSTREAMER
#include <gst/base/base.h>
#include <gst/base/gstbitreader.h>
#include <gst/base/gstbytereader.h>
#endif
#ifdef HAVE_GLIB
#include <glib.h>
#endif

static constexpr uint32_t kSize = 65536;
static unsigned char data[kSize + 8];

JOB(words_64k, kelcore) {
  for (auto _ : state) {
    KEL_BYTE *reader = KELByte_Open(data, kSize);
    uint32_t end = 0, sum = 0;
    for (uint32_t i = 0; i < kSize / 4; ++i)
      sum += KELByte_Get_be_uint32(reader, &end);
    benchmark::DoNotOptimize(sum);
    KELByte_Close(reader);
  }
}

JOB(fields_64k, kelcore) {
  for (auto _ : state) {
    KEL_BIT *cursor = KELBitOpen(data, kSize);
    uint32_t sum = 0;
    for (uint32_t i = 0; i < kSize / 2; ++i)
      sum += KELBitGetBit(cursor, 5) + KELBitGetBit(cursor, 11);
    benchmark::DoNotOptimize(sum);
    KELBitClose(cursor);
  }
}

#ifdef HAVE_GSTREAMER
// The functions of these names; the header replaces them by inline ones.
JOB(words_64k, gstreamer) {
  for (auto _ : state) {
    GstByteReader *reader = gst_byte_reader_new(data, kSize);
    guint32 word = 0, sum = 0;
    for (uint32_t i = 0; i < kSize / 4; ++i) {
      (gst_byte_reader_get_uint32_be)(reader, &word);
      sum += word;
    }
    benchmark::DoNotOptimize(sum);
    gst_byte_reader_free(reader);
  }
}

JOB(fields_64k, gstreamer) {
  for (auto _ : state) {
    GstBitReader *reader = gst_bit_reader_new(data, kSize);
    guint32 five = 0, eleven = 0, sum = 0;
    for (uint32_t i = 0; i < kSize / 2; ++i) {
      (gst_bit_reader_get_bits_uint32)(reader, &five, 5);
      (gst_bit_reader_get_bits_uint32)(reader, &eleven, 11);
      sum += five + eleven;
    }
    benchmark::DoNotOptimize(sum);
    gst_bit_reader_free(reader);
  }
}
#endif

static const char *kPath = "/media/usb0/recordings/2026/11/programme/part-0001.segment.ts";

JOB(last_in_path, kelcore) {
  const char *path = kPath;
  for (auto _ : state) {
    benchmark::DoNotOptimize(path);
    benchmark::DoNotOptimize(KEL_strrstr(path, "/"));
  }
}

#ifdef HAVE_GLIB
JOB(last_in_path, glib) {
  const char *path = kPath;
  for (auto _ : state) {
    benchmark::DoNotOptimize(path);
    benchmark::DoNotOptimize(g_strrstr(path, "/"));
  }
}
#endif
