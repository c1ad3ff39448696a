#include "ListCommands.h"

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <vector>

#include "Console.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQKernelRegistry.h"

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
