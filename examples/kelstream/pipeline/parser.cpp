// The parser thread.

#include "parser.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "adts_splitter.h"
#include "adts_syntax.h"
#include "h264_splitter.h"
#include "probe.h"
#include "trace.h"
#include "ts_demuxer.h"

namespace kelstream {

namespace {

// What a file is must show in its first bytes.
constexpr size_t kProbeSize = size_t{256} * 1024;
static_assert(kProbeSize <= StagingRing::kMaxWanted);

}  // namespace

void Parser::Run() {
  try {
    ParseAll();
  } catch (const std::bad_alloc &) {
    end_.read_error = ENOMEM;
  }
  ring_.Abandon();
  reader_.Join();
  end_.size = reader_.size();
  if (reader_.error() != 0)
    end_.read_error = reader_.error();
  KELSTREAM_TRACE(KEL_LEVEL_INFO, "%llu bytes read as %s\n",
                  static_cast<unsigned long long>(end_.size), NameOf(end_.container));
  sender_.End(end_);
}

void Parser::Release(size_t count) {
  ring_.Release(count);
  offset_ += count;
}

// Tags in front may be longer than the ring (they hold pictures), and hide what
// the file is.
void Parser::SkipTags() {
  for (;;) {
    const auto view = ring_.Read(adts::kId3HeaderSize);
    if (view.size < adts::kId3HeaderSize)
      return;
    const auto tag = adts::Id3TagSize(view.data);
    if (!tag)
      return;
    for (uint64_t left = *tag; left > 0;) {
      const size_t size = ring_.Read(1).size;
      if (size == 0)
        return;
      const auto count = static_cast<size_t>(std::min<uint64_t>(left, size));
      Release(count);
      left -= count;
    }
  }
}

void Parser::ParseAll() {
  SkipTags();
  const auto view = ring_.Read(kProbeSize);
  end_.container = Probe(view.data, view.size, view.whole);
  sender_.SetContainer(end_.container);
  switch (end_.container) {
    case Container::kH264: {
      SingleStream stream(sender_, Codec::kH264);
      H264Splitter splitter(stream, offset_);
      ParseStream(splitter);
      break;
    }
    case Container::kAdts: {
      SingleStream stream(sender_, Codec::kAac);
      AdtsSplitter splitter(stream, offset_);
      ParseStream(splitter);
      break;
    }
    case Container::kMpegTs:
      ParseTransportStream();
      break;
    case Container::kUnknown:
      break;
  }
}

void Parser::ParseStream(Splitter &splitter) {
  for (;;) {
    const auto view = ring_.Read(1);
    if (view.size == 0)
      break;
    splitter.Feed(view.data, view.size);
    sender_.Flush();
    Release(view.size);
  }
  splitter.Finish();
}

void Parser::ParseTransportStream() {
  ts::TsDemuxer demuxer(sender_, offset_);
  const auto first = ring_.Read(kProbeSize);
  demuxer.Survey(first.data, first.size, first.whole);
  for (size_t wanted = 1;;) {
    const auto view = ring_.Read(wanted);
    const size_t taken = demuxer.Take(view.data, view.size, view.whole);
    sender_.Flush();
    Release(taken);
    if (view.whole)
      break;
    wanted = view.size - taken + 1;
  }
  demuxer.Finish();
}

}  // namespace kelstream
