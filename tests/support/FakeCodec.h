// A codec manager without codecs: knows a few tags, turns pixels into blocks and back by adding to each byte, writes
// down each call, and fails at the n-th call or at a named step.
#pragma once
#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "pantiq/platform/PQModules.h"
#include "support/FakeMedia.h"

namespace pantiq::test {

class FakeCodecs final : public PQCodecManager {
 public:
  static constexpr std::uint8_t kShift = 7;  // what a byte of a block has more than the pixel's
  static constexpr std::uint32_t kOwn = PQFourCC('F', 'A', 'K', 'E');

  FakeCodecs() { SetCodecManager(this); }
  ~FakeCodecs() override { SetCodecManager(nullptr); }

  FakeLog log;
  std::vector<std::uint32_t> tags{kOwn};  // that open
  std::uint32_t any = kOwn;               // what tag 0 opens; 0: nothing
  bool refuses_output = false;            // ICLocate with a second header finds nothing
  std::size_t capacity = 0;               // answer to ICCompressGetSize; 0: the bytes of a frame
  std::uint32_t claimed = 0;              // biSizeImage after ICCompress; 0: the bytes of the block
  std::vector<std::int32_t> numbers;      // of the frames
  std::vector<std::uint32_t> qualities;
  BITMAPINFOHEADER compress_input, decompress_input, decompress_output;  // of the latest call
  std::vector<std::uint8_t> pixels;                                      // that came last
  int open = 0, allocated = 0;

  PQPlatformResult ICLocate(std::uint32_t type, std::uint32_t tag, const BITMAPINFOHEADER& input,
                            const BITMAPINFOHEADER* output, PQCodecMode mode, PQCodecHandle& handle) override {
    handle = 0;
    auto result = log.Step("ICLocate " + Text(tag) + (mode == kCodecCompress ? " compress" : " decompress") +
                           (output != nullptr ? " both" : ""));
    if (!result.Ok()) return result;
    const bool known = tag == 0 ? any != 0 : std::find(tags.begin(), tags.end(), tag) != tags.end();
    if (type != kVideoCodecType || !known || (output != nullptr && refuses_output)) {
      return {kPlatformFormat, "no such codec"};
    }
    compress_input = input;
    tag_ = tag == 0 ? any : tag;
    ++open;
    handle = 4711;
    return {};
  }
  PQPlatformResult ICGetInfo(PQCodecHandle handle, PQCodecInfo& info) override {
    auto result = log.Step("ICGetInfo" + Zero(handle));
    if (result.Ok() && handle == 0) result = {kPlatformState, "no handle"};
    if (result.Ok()) info.fccHandler = tag_;
    return result;
  }
  PQPlatformResult ICClose(PQCodecHandle handle) override {
    --open;
    return log.Step("ICClose" + Zero(handle));
  }
  PQPlatformResult ICCompressGetFormat(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                       BITMAPINFOHEADER& output) override {
    auto result = log.Step("ICCompressGetFormat" + Zero(handle));
    if (result.Ok() && handle == 0) result = {kPlatformState, "no handle"};
    if (!result.Ok()) return result;
    output = input;
    output.biBitCount = 24;
    output.biCompression = refuses_output ? 0 : tag_;  // then it was asked for plain frames
    return {};
  }
  PQPlatformResult ICCompressGetSize(PQCodecHandle, const BITMAPINFOHEADER& input, const BITMAPINFOHEADER&,
                                     std::size_t& bytes) override {
    bytes = capacity;
    if (bytes == 0) bytes = static_cast<std::size_t>(input.biWidth) * static_cast<std::size_t>(input.biHeight) * 3;
    return log.Step("ICCompressGetSize");
  }
  PQPlatformResult ICCompressBegin(PQCodecHandle, const BITMAPINFOHEADER&, const BITMAPINFOHEADER&) override {
    return log.Step("ICCompressBegin");
  }
  PQPlatformResult ICCompress(PQCodecHandle, std::uint32_t, BITMAPINFOHEADER& output, const PQCodecBlock& block,
                              const BITMAPINFOHEADER& input, const PQPlatformBlock& frame, std::uint32_t&,
                              std::uint32_t&, std::int32_t number, std::uint32_t frame_size, std::uint32_t quality,
                              const BITMAPINFOHEADER* previous, const std::uint8_t* previous_frame) override {
    numbers.push_back(number);
    qualities.push_back(quality);
    compress_input = input;
    pixels.assign(frame.data, frame.data + frame.size);
    auto result = log.Step("ICCompress");
    if (!result.Ok()) return result;
    if (frame_size != 0 || previous != nullptr || previous_frame != nullptr)
      return {kPlatformState, "more than was asked"};
    const std::size_t bytes = std::min(frame.size, block.capacity);
    for (std::size_t i = 0; i < bytes; ++i) block.data[i] = static_cast<std::uint8_t>(frame.data[i] + kShift);
    output.biSizeImage = claimed > 0 ? claimed : static_cast<std::uint32_t>(bytes);
    return {};
  }
  PQPlatformResult ICCompressEnd(PQCodecHandle) override { return log.Step("ICCompressEnd"); }
  PQPlatformResult ICDecompressBegin(PQCodecHandle, const BITMAPINFOHEADER& input,
                                     const BITMAPINFOHEADER& output) override {
    decompress_input = input;
    decompress_output = output;
    return log.Step("ICDecompressBegin");
  }
  PQPlatformResult ICDecompress(PQCodecHandle, std::uint32_t, const BITMAPINFOHEADER& input, const std::uint8_t* block,
                                const BITMAPINFOHEADER& output, const PQCodecPicture& picture) override {
    decompress_input = input;
    decompress_output = output;
    auto result = log.Step("ICDecompress");
    if (!result.Ok()) return result;
    if (input.biSizeImage != picture.size) return {kPlatformFormat, "the block has another size"};
    for (std::size_t i = 0; i < picture.size; ++i) picture.data[i] = static_cast<std::uint8_t>(block[i] - kShift);
    return {};
  }
  PQPlatformResult ICDecompressEnd(PQCodecHandle) override { return log.Step("ICDecompressEnd"); }
  PQPlatformResult GlobalAlloc(std::size_t bytes, PQCodecMemory& memory) override {
    auto result = log.Step("GlobalAlloc " + std::to_string(bytes));
    if (!result.Ok()) return result;
    memory_.assign(bytes, 0);
    memory = 1;
    ++allocated;
    return {};
  }
  PQPlatformResult GlobalLock(PQCodecMemory, std::uint8_t*& data) override {
    data = memory_.data();
    return log.Step("GlobalLock");
  }
  PQPlatformResult GlobalUnlock(PQCodecMemory) override { return log.Step("GlobalUnlock"); }
  PQPlatformResult GlobalFree(PQCodecMemory) override {
    --allocated;
    return log.Step("GlobalFree");
  }
  PQPlatformResult ListCodecs(std::vector<PQCodecEntry>&) override { return {}; }

 private:
  static std::string Text(std::uint32_t tag) {
    std::string text;
    for (int i = 0; i < 4 && tag != 0; ++i) text += static_cast<char>(tag >> (8 * i) & 0xff);
    return text.empty() ? "any" : text;
  }
  static std::string Zero(PQCodecHandle handle) { return handle == 0 ? " of nothing" : ""; }
  std::uint32_t tag_ = 0;
  std::vector<std::uint8_t> memory_;
};

}  // namespace pantiq::test
