#include "ChecksumSink.h"

#include <cstdio>

#include "Hash.h"
#include "pantiq/host/PQReport.h"

namespace pantiq::app {

constinit const PQClassTag ChecksumSink::kTag{"checksum", &ImageSink::kTag};

const PQClassInfo& ChecksumSink::Class() {
  static const PQClassInfo& info =
      PQDescribe<ChecksumSink>("checksum", "ChecksumSink",
                               "Writes one line a frame: number, size, format, XXH64 of the pixels.")
          .Inherits<ImageSink>()
          .Property("FileName", &ChecksumSink::GetFileName, &ChecksumSink::SetFileName, PQDefault("-"), PQBareValue{},
                    PQFile(PQFileUse::Write), PQActs::NextStart, "File for the lines; - is standard output.")
          .Done();
  return info;
}

PQStatus ChecksumSink::Start(TJCStartOperation& op) {
  ImageSink::Start(op).IgnoreError();
  return file_.Open(GetFileName());
}

PQStatus ChecksumSink::Frame(const TPQImageBuffer& frame, std::int64_t number) {
  if (PQStatus status = file_.Open(GetFileName()); !status.Ok()) return status;
  if (frame.GetByteSize() == 0 && !told_empty_) {
    told_empty_ = true;
    Report(this, PQSeverity::Warning, "frame " + std::to_string(number) + " has no pixels (" + SizeText(frame) + ")");
  }
  const char* format = "";
  for (const PQWord& word : PQEnumWords<TPQVideoFormat>::words) {
    if (word.value == frame.GetFormat()) format = word.name.data();
  }
  char line[96];
  const int length = std::snprintf(
      line, sizeof line, "%lld %dx%d %s %016llx\n", static_cast<long long>(number), frame.GetWidth(), frame.GetHeight(),
      format, static_cast<unsigned long long>(Xxh64(frame.Read(), static_cast<std::size_t>(frame.GetByteSize()))));
  return file_.Write(line, static_cast<std::size_t>(length));
}

}  // namespace pantiq::app
