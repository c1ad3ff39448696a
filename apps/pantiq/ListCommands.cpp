#include "ListCommands.h"

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <vector>

#include "Console.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQKernelRegistry.h"
#include "pantiq/media/PQVideoCompression.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq::app {
namespace {

using Json = nlohmann::ordered_json;

// The variant that a call of the kernel runs: the bound one, else the one that the first call will bind.
const char* VariantOf(const PQKernelInfo& kernel) {
  PQVariant variant = PQVariant::px;
  if (!kernel.Bound(&variant)) {
    variant = PQVariantFor(kernel.pattern, Global_CPU());
    if (kernel.entries[static_cast<int>(variant)] == nullptr) variant = PQVariant::px;
  }
  return PQVariantName(variant);
}

// "any", "multiples of 4, 32 to 8192", "720x480, 720x576"
std::string SizesOf(const PQCodecEntry& codec) {
  std::string text;
  for (const std::string& size : codec.sizes) text += (text.empty() ? "" : ", ") + size;
  if (!text.empty() || codec.encoder.empty()) return text;
  if (codec.align > 1) text = "multiples of " + std::to_string(codec.align);
  if (codec.least > codec.align) text += (text.empty() ? "from " : ", from ") + std::to_string(codec.least);
  if (codec.most + codec.align <= kMostCodecSide) {
    text += (text.empty() ? "up to " : ", up to ") + std::to_string(codec.most);
  }
  return text.empty() ? "any" : text;
}

}  // namespace

int ListClasses(bool json) {
  std::vector<std::string> pages;
  std::size_t width = 0;
  for (const PQClassInfo* info : PQRegisteredClasses()) {
    const std::string page = PQPageOf(*info);
    if (std::find(pages.begin(), pages.end(), page) == pages.end()) pages.push_back(page);
    width = std::max(width, info->Name().size());
  }
  Json all = Json::array();
  std::string text;
  for (const std::string& page : pages) {
    Json classes = Json::array();
    text += (text.empty() ? "" : "\n") + page + "\n";
    for (const PQClassInfo* info : PQRegisteredClasses(page)) {
      classes.push_back({{"name", info->Name()}, {"unit", info->Unit()}, {"help", info->Help()}});
      text += "  " + Padded(info->Name(), width + 2) + info->Help() + "\n";
    }
    all.push_back({{"page", page}, {"classes", std::move(classes)}});
  }
  return PrintResult(json ? all.dump(2) + "\n" : text);
}

int ListCodecs(bool json) {
  std::vector<PQCodecEntry> codecs;
  PQPlatformResult result;
  if (PQCodecManager* manager = LoadCodecManager(result)) result = manager->ListCodecs(codecs);
  Json all = Json::array();
  std::string text;
  std::size_t encoder_width = 10, decoder_width = 12, sizes_width = 18;
  for (const PQCodecEntry& codec : codecs) {
    encoder_width = std::max(encoder_width, codec.encoder.size() + 2);
    decoder_width = std::max(decoder_width, codec.decoder.size() + 2);
    sizes_width = std::max(sizes_width, SizesOf(codec).size() + 2);
  }
  const auto line = [&](const std::string& tag, const std::string& encoder, const std::string& decoder,
                        const char* lossless, const char* alone, const char* quality, const std::string& sizes,
                        const std::string& form) {
    text += Padded(tag, 6) + Padded(encoder, encoder_width) + Padded(decoder, decoder_width) + Padded(lossless, 10) +
            Padded(alone, 7) + Padded(quality, 9) + Padded(sizes, sizes_width) + form + "\n";
  };
  line("tag", "compress", "decompress", "lossless", "alone", "quality", "width and height", "form");
  for (const PQCodecEntry& codec : codecs) {
    const std::string tag = PQFourCCText(codec.tag);
    const bool compress = !codec.encoder.empty();
    const auto yes = [compress](bool value) { return compress ? (value ? "yes" : "no") : "-"; };
    line(tag, compress ? codec.encoder : "-", codec.decoder, yes(codec.lossless), yes(codec.every_frame_key),
         yes(codec.quality), compress ? SizesOf(codec) : "-", codec.name);
    Json entry = {{"tag", tag}, {"name", codec.name}, {"encoder", codec.encoder}, {"decoder", codec.decoder}};
    if (compress) {
      entry["lossless"] = codec.lossless;
      entry["alone"] = codec.every_frame_key;
      entry["quality"] = codec.quality;
      if (codec.sizes.empty()) {
        entry["align"] = codec.align;
        entry["least"] = codec.least;
        entry["most"] = codec.most;
      } else {
        entry["sizes"] = codec.sizes;
      }
    }
    all.push_back(std::move(entry));
  }
  if (codecs.empty()) text = "No codec works here: " + result.detail + "\n";
  if (!json) {
    if (!codecs.empty()) {
      text +=
          "\nEach that compresses was tried. lossless: every byte comes back; alone: each block can be "
          "decompressed\nwithout those before it; quality: Quality counts.\n";
    }
    return PrintResult(text);
  }
  Json document = {{"codecs", std::move(all)}};
  if (!result.Ok()) document["missing"] = result.detail;
  return PrintResult(document.dump(2) + "\n");
}

int ListKernels(bool json) {
  const char* wish = std::getenv("PANTIQ_CPU");
  std::string runnable;
  Json variants = Json::array();
  for (int i = 0; i < kPQVariantCount; ++i) {
    const auto variant = static_cast<PQVariant>(i);
    if (!PQCanRun(variant)) continue;
    runnable += std::string(runnable.empty() ? "" : " ") + PQVariantName(variant);
    variants.push_back(PQVariantName(variant));
  }
  Json kernels = Json::array();
  std::size_t width = 4, family_width = 6;
  for (const PQKernelInfo& kernel : PQKernels()) {
    width = std::max(width, std::string_view(kernel.name).size());
    family_width = std::max(family_width, std::string_view(kernel.family).size());
  }
  std::string text = "Processor code " + std::to_string(Global_CPU()) + ", runs " + runnable +
                     (wish != nullptr ? std::string(", PANTIQ_CPU=") + wish : std::string()) + "\n\n" +
                     Padded("kernel", width + 2) + Padded("family", family_width + 2) + "slot  pattern  variant\n";
  for (const PQKernelInfo& kernel : PQKernels()) {
    const char* variant = VariantOf(kernel);
    Json entries = Json::array();
    for (int i = 0; i < kPQVariantCount; ++i) {
      if (kernel.entries[i] != nullptr) entries.push_back(PQVariantName(static_cast<PQVariant>(i)));
    }
    kernels.push_back({{"name", kernel.name},
                       {"unit", kernel.unit},
                       {"family", kernel.family},
                       {"slot", kernel.has_slot},
                       {"pattern", std::string(1, static_cast<char>(kernel.pattern))},
                       {"variants", std::move(entries)},
                       {"variant", variant}});
    text += Padded(kernel.name, width + 2) + Padded(kernel.family, family_width + 2) +
            (kernel.has_slot ? "yes   " : "no    ") + static_cast<char>(kernel.pattern) + "        " + variant + "\n";
  }
  if (!json) return PrintResult(text);
  const Json all = {{"code", Global_CPU()}, {"variants", variants}, {"kernels", kernels}};
  return PrintResult(all.dump(2) + "\n");
}

}  // namespace pantiq::app
