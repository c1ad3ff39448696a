// The codec manager on libavcodec.
#pragma once
#include "pantiq/platform/av/PQAvDecoder.h"
#include "pantiq/platform/av/PQAvEncoder.h"

namespace pantiq::av {

class Manager final : public PQCodecManager {
 public:
  PQPlatformResult ICLocate(std::uint32_t type, std::uint32_t tag, const BITMAPINFOHEADER& input,
                            const BITMAPINFOHEADER* output, PQCodecMode mode, PQCodecHandle& handle) override;
  PQPlatformResult ICGetInfo(PQCodecHandle handle, PQCodecInfo& info) override;
  PQPlatformResult ICClose(PQCodecHandle handle) override;
  PQPlatformResult ICCompressGetFormat(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                       BITMAPINFOHEADER& output) override;
  PQPlatformResult ICCompressGetSize(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                     const BITMAPINFOHEADER& output, std::size_t& bytes) override;
  PQPlatformResult ICCompressBegin(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                   const BITMAPINFOHEADER& output) override;
  PQPlatformResult ICCompress(PQCodecHandle handle, std::uint32_t flags, BITMAPINFOHEADER& output,
                              const PQCodecBlock& block, const BITMAPINFOHEADER& input, const PQPlatformBlock& frame,
                              std::uint32_t& chunk_id, std::uint32_t& result_flags, std::int32_t frame_number,
                              std::uint32_t frame_size, std::uint32_t quality, const BITMAPINFOHEADER* previous,
                              const std::uint8_t* previous_frame) override;
  PQPlatformResult ICCompressEnd(PQCodecHandle handle) override;
  PQPlatformResult ICDecompressBegin(PQCodecHandle handle, const BITMAPINFOHEADER& input,
                                     const BITMAPINFOHEADER& output) override;
  PQPlatformResult ICDecompress(PQCodecHandle handle, std::uint32_t flags, const BITMAPINFOHEADER& input,
                                const std::uint8_t* block, const BITMAPINFOHEADER& output,
                                const PQCodecPicture& picture) override;
  PQPlatformResult ICDecompressEnd(PQCodecHandle handle) override;
  PQPlatformResult GlobalAlloc(std::size_t bytes, PQCodecMemory& memory) override;
  PQPlatformResult GlobalLock(PQCodecMemory memory, std::uint8_t*& data) override;
  PQPlatformResult GlobalUnlock(PQCodecMemory memory) override;
  PQPlatformResult GlobalFree(PQCodecMemory memory) override;
  PQPlatformResult ListCodecs(std::vector<PQCodecEntry>& codecs) override;
};

}  // namespace pantiq::av
