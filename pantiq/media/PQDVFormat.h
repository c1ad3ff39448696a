// TPQDVFormat: how digital video is encoded.
#pragma once
#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>

#include "pantiq/host/PQComponent.h"
#include "pantiq/platform/PQMediaOutput.h"

namespace pantiq {

enum TPQDSDVFormat : std::uint8_t { dvfNTSC, dvfPAL };
enum TPQDSDVEncoding : std::uint8_t { dveDVSD, dveDVHD, dveDVSL };
enum TPQDSDVOutResolution : std::uint8_t { dvr720, dvr360, dvr180, dvr88 };
template <>
struct PQEnumWords<TPQDSDVFormat> {
  static constexpr std::string_view name = "TPQDSDVFormat";
  static constexpr PQWord words[] = {{"dvfNTSC", 0}, {"dvfPAL", 1}};
};
template <>
struct PQEnumWords<TPQDSDVEncoding> {
  static constexpr std::string_view name = "TPQDSDVEncoding";
  static constexpr PQWord words[] = {{"dveDVSD", 0}, {"dveDVHD", 1}, {"dveDVSL", 2}};
};
template <>
struct PQEnumWords<TPQDSDVOutResolution> {
  static constexpr std::string_view name = "TPQDSDVOutResolution";
  static constexpr PQWord words[] = {{"dvr720", 0}, {"dvr360", 1}, {"dvr180", 2}, {"dvr88", 3}};
};

// While an encoder is bound its own values are read, and written unless UseCurrent is true. Any thread.
class PQ_EXPORT TPQDVFormat final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQDSDVFormat GetFormat() const;
  void SetFormat(TPQDSDVFormat value);
  TPQDSDVEncoding GetEncoding() const;
  void SetEncoding(TPQDSDVEncoding value);
  TPQDSDVOutResolution GetResolution() const;
  void SetResolution(TPQDSDVOutResolution value);
  bool GetUseCurrent() const;
  void SetUseCurrent(bool value);

  // Reads the encoder's values into the fields; codes that nobody knows leave a field as it was.
  void GetFormats() const;
  // Writes the fields to the encoder, unless UseCurrent is true. A field outside its set writes the set's first value.
  void ApplyFormats();
  // Null: none is bound.
  void BindEncoder(std::shared_ptr<PQMediaOutput> graph, PQFilterId encoder);

 private:
  template <class V>
  void Store(V TPQDVFormat::*field, V value);
  void Fetch() const;
  void Apply();
  mutable std::mutex mutex_;
  mutable TPQDSDVFormat format_ = dvfNTSC;
  mutable TPQDSDVEncoding encoding_ = dveDVSD;
  mutable TPQDSDVOutResolution resolution_ = dvr720;
  bool use_current_ = true;
  std::shared_ptr<PQMediaOutput> graph_;
  PQFilterId encoder_ = 0;
};

}  // namespace pantiq
