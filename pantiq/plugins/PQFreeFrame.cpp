#include "pantiq/plugins/PQFreeFrame.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/plugins/PQPluginProcess.h"

namespace pantiq {

constinit const PQClassTag TPQFreeFrame::kTag{"TPQFreeFrame", &TPQMultiInput::kTag};

namespace {

constexpr int kLeastInputs = 1, kMostInputs = 20;
constexpr std::uint32_t kMostParameters = 65535;

std::uintptr_t Address(const void* record) { return reinterpret_cast<std::uintptr_t>(record); }

std::uint32_t Low(std::uintptr_t answer) { return static_cast<std::uint32_t>(answer); }

// Bytes of a frame with `size` bytes a pixel; blocks count theirs in 31 bits.
std::size_t FrameBytes(std::int32_t width, std::int32_t height, int size) {
  const std::int64_t bytes = std::int64_t{width} * height * size;
  if (bytes > std::numeric_limits<std::int32_t>::max()) throw std::bad_alloc();
  return static_cast<std::size_t>(bytes);
}

}  // namespace

const PQClassInfo& TPQFreeFrame::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQFreeFrame>("TPQFreeFrame", "PQFreeFrame", "Runs each frame through the video effect of a plug-in.")
          .Inherits<TPQMultiInput>()
          .Property("FilterFileName", &TPQFreeFrame::GetFilterFileName, &TPQFreeFrame::SetFilterFileName, PQDefault(""),
                    PQActs::NextFrame, PQFile(PQFileUse::Read), PQBareValue{},
                    "The plug-in: a shared object with the function plugMain, as docs/plugins.md tells. pantiq inspect "
                    "--plugin=FILE shows what it has. Without one that works no frames leave.")
          .Object("Parameters", &TPQFreeFrame::GetParameters, PQActs::Now,
                  "The plug-in's parameters, each by its name or its number: Parameters.Speed=0.5, Parameters[2]=0.5.")
          .Property("Isolated", &TPQFreeFrame::GetIsolated, &TPQFreeFrame::SetIsolated, PQDefault(false),
                    PQActs::NextStart, PQOrder(-1),
                    "Runs the plug-in in a process of its own. If it crashes there, or does not come back for two "
                    "seconds, frames pass as they came until the next start. The pixels are the same, at the price of "
                    "two copies of each frame.")
          .Property(
              "OwnReadBack", &TPQFreeFrame::GetOwnReadBack, &TPQFreeFrame::SetOwnReadBack, PQDefault(false),
              PQActs::Now, PQOrder(-1),
              "What replaces the value of a parameter that was sent: what the plug-in has for that parameter, or, "
              "with false, what it has for parameter 0.")
          .Pin("InputPins", &TPQFreeFrame::InputPins,
               "Frames in, 1 to 20. A plug-in for one frame takes those of the first input; one that mixes takes those "
               "of the inputs in their order.")
          .Done();
  return info;
}

TPQFreeFrame::TPQFreeFrame(TComponent* owner)
    : TPQMultiInput(owner), InputPins(this, true) {
  inputs_.emplace(
      InputPins, kLeastInputs, kMostInputs,
      [this]() -> std::unique_ptr<TJCPin> {
        auto pin = std::make_unique<TPQJCQueuedImageSinkPin>(*this, JCDispatch::To<&TPQMultiInput::SinkDispatch>(this));
        AddInput(*pin);
        return pin;
      },
      [this](TJCPin& pin) {
        JCFrameMutex::Guard guard(FrameMutex());  // a frame on its way walks the inputs
        RemoveInput(static_cast<TPQJCQueuedImageSinkPin&>(pin));
      });
}

TPQFreeFrame::~TPQFreeFrame() { BeforeDestructionOnce(); }

void TPQFreeFrame::BeforeDestruction() {
  inputs_.reset();
  {
    JCFrameMutex::Guard guard(FrameMutex());
    destroying_ = true;
  }
  TPQMultiInput::BeforeDestruction();
}

// --- properties -----------------------------------------------------------------------------------------------------

std::string TPQFreeFrame::GetFilterFileName() const {
  auto section = Lock().ReadLock();
  return file_name_;
}

void TPQFreeFrame::SetFilterFileName(const std::string& file) {
  JCFrameMutex::Guard guard(FrameMutex());
  {
    auto section = Lock().WriteLock();
    file_name_ = file;
  }
  parameters_read_.store(false, std::memory_order_release);
  if (IsDesigning()) return;
  InitPopulateCaps(Running);
  ReadParameters();
  if (Running) SetSize(stream_width_, stream_height_);
}

void TPQFreeFrame::SetIsolated(bool isolated) { isolated_.store(isolated, std::memory_order_relaxed); }
void TPQFreeFrame::SetOwnReadBack(bool own) { own_read_back_.store(own, std::memory_order_relaxed); }

std::string TPQFreeFrame::GetDescription() const {
  auto section = Lock().ReadLock();
  return info_ ? info_->description : std::string();
}
std::string TPQFreeFrame::GetAbout() const {
  auto section = Lock().ReadLock();
  return info_ ? info_->about : std::string();
}
std::int32_t TPQFreeFrame::GetMinorVertion() const {
  auto section = Lock().ReadLock();
  return info_ ? info_->minor : 0;
}
std::int32_t TPQFreeFrame::GetMajorVertion() const {
  auto section = Lock().ReadLock();
  return info_ ? info_->major : 0;
}
bool TPQFreeFrame::GetHasExtendedInfo() const {
  auto section = Lock().ReadLock();
  return info_.has_value();
}
TPQFFOptimizedFor TPQFreeFrame::GetVC_OptimizedFor() const { return GetCapabilities().optimized_for; }
TPQFreeFrame::Capabilities TPQFreeFrame::GetCapabilities() const {
  auto section = Lock().ReadLock();
  return capabilities_;
}

bool TPQFreeFrame::HasUntoldParameters() const {
  return !parameters_read_.load(std::memory_order_acquire) && !GetFilterFileName().empty();
}

// --- the plug-in ----------------------------------------------------------------------------------------------------

TPQFreeFrame::LibraryRef TPQFreeFrame::Library() const {
  const std::lock_guard guard(library_mutex_);
  return library_;
}

bool TPQFreeFrame::HasPlugIn() const {
  const LibraryRef library = Library();
  return library != nullptr && !library->IsLost();
}

std::uintptr_t TPQFreeFrame::Execute(std::uint32_t function, std::uintptr_t input) const {
  const LibraryRef library = Library();
  return library != nullptr ? library->Call(function, input, 0) : 0;
}

std::uintptr_t TPQFreeFrame::ExecuteInstance(std::uint32_t function, std::uintptr_t input) const {
  const LibraryRef library = Library();
  if (library == nullptr) return 0;
  return library->Call(function, input, library->instance.load(std::memory_order_acquire));
}

bool TPQFreeFrame::GetPlugInBoolCaps(std::uint32_t code) const { return GetPlugInWordCaps(code) == FF_TRUE; }

std::uint32_t TPQFreeFrame::GetPlugInWordCaps(std::uint32_t code) const { return Low(Execute(FF_GETPLUGINCAPS, code)); }

bool TPQFreeFrame::IsValidPlugIn(const std::string& file) {
  PQPlatformResult result;
  return PQLoadPlugin(file, result) != nullptr;
}

void TPQFreeFrame::Tell(bool for_stream, std::string what, const std::string& detail) {
  if (!HasReportListener()) return;
  Report(this, for_stream ? PQSeverity::Error : PQSeverity::Warning, std::move(what), 0, detail);
}

void TPQFreeFrame::Unload() {
  LibraryRef library;
  {
    const std::lock_guard guard(library_mutex_);
    library.swap(library_);
  }
  if (library == nullptr) return;
  const bool was_lost = library->IsLost();
  if (initialised_ && !destroying_) library->Call(FF_DEINITIALISE, 0, 0);
  initialised_ = false;
  if (library->IsLost() && !was_lost) {
    Report(this, PQSeverity::Warning, "the plug-in was lost when it was let go of", 0, library->WhyLost());
  }
}

void TPQFreeFrame::InitPopulateCaps(bool for_stream) {
  Unload();
  caps_ = {};
  width_ = height_ = 0;
  std::optional<PQPluginExtendedInfo> info;
  const std::string file = GetFilterFileName();
  const auto publish = [&] {
    auto section = Lock().WriteLock();
    capabilities_ = caps_;
    info_ = std::move(info);
  };
  if (file.empty()) {
    publish();
    if (for_stream) Tell(true, "there is no plug-in; no frames leave", "set FilterFileName to a plug-in's file");
    return;
  }
  const auto fail = [&](const std::string& why) {
    Unload();
    caps_ = {};
    publish();
    Tell(for_stream, "the plug-in '" + file + "' cannot be used; no frames leave", why);
  };

  PQPlatformResult result;
  const LibraryRef library = GetIsolated() ? PQLoadPluginIsolated(file, result) : PQLoadPlugin(file, result);
  if (library == nullptr) return fail(result.detail);
  {
    const std::lock_guard guard(library_mutex_);
    library_ = library;
  }
  info = library->ExtendedInfo();
  caps_.video16 = GetPlugInBoolCaps(FF_CAP_16BITVIDEO);
  caps_.video24 = GetPlugInBoolCaps(FF_CAP_24BITVIDEO);
  caps_.video32 = GetPlugInBoolCaps(FF_CAP_32BITVIDEO);
  caps_.process_copy = GetPlugInBoolCaps(FF_CAP_PROCESSFRAMECOPY);
  GetPlugInWordCaps(FF_CAP_MINIMUMINPUTFRAMES);
  GetPlugInWordCaps(FF_CAP_MAXIMUMINPUTFRAMES);
  caps_.optimized_for = static_cast<TPQFFOptimizedFor>(GetPlugInWordCaps(FF_CAP_COPYORINPLACE));
  if (!library->IsLost()) {
    if (!caps_.video16 && !caps_.video24 && !caps_.video32)
      return fail("it takes frames of neither 16, 24 nor 32 bits");
    if (!caps_.video24 && caps_.video32) convert32_ = true;
    const auto answer = static_cast<std::uint16_t>(Execute(FF_INITIALISE, 0));
    if (!library->IsLost()) {
      if (answer != 0) return fail("it answered " + std::to_string(answer) + " to FF_INITIALISE; expected 0");
      initialised_ = true;
      if (caps_.process_copy) {
        std::uint32_t least = GetPlugInWordCaps(FF_CAP_MINIMUMINPUTFRAMES);
        std::uint32_t most = GetPlugInWordCaps(FF_CAP_MAXIMUMINPUTFRAMES);
        if (least == 0 && most == 0) least = most = 1;
        caps_.minimum_inputs = least != 0 ? least : most;
        caps_.maximum_inputs = most != 0 ? most : least;
      }
    }
  }
  if (library->IsLost()) caps_ = {};
  publish();
  TellAfter(*library, false);
}

void TPQFreeFrame::ReadParameters() {
  parameters_.Clear();
  const LibraryRef library = Library();
  if (library == nullptr || library->IsLost()) return;
  std::uint32_t count = Low(library->Call(FF_GETNUMPARAMETERS, 0, 0));
  if (count == FF_FAIL) count = 0;
  if (count > kMostParameters) {
    Report(this, PQSeverity::Warning, "the plug-in has too many parameters; the first 65535 are used", 0,
           "it told " + std::to_string(count));
    count = kMostParameters;
  }
  for (std::uint32_t i = 0; i < count && !library->IsLost(); ++i) {
    const std::uint32_t type = Low(library->Call(FF_GETPARAMETERTYPE, i, 0));
    std::string name = library->Text(FF_GETPARAMETERNAME, i, 0, 16).value_or(std::string());
    parameters_.Add(PQMakeFreeFrameParameter(type, std::move(name), *this, static_cast<std::uint16_t>(i)));
  }
  if (library->IsLost()) {
    parameters_.Clear();
  } else {
    parameters_read_.store(true, std::memory_order_release);
    parameters_.TryApplyValues();
  }
  TellAfter(*library, false);
}

void TPQFreeFrame::SetSize(std::int32_t width, std::int32_t height) {
  const LibraryRef library = Library();
  width_ = height_ = 0;
  for (auto& block : blocks_) block = {};
  if (library == nullptr || library->IsLost() || width < 1 || height < 1) return;
  VideoInfoStruct video{};
  video.FrameWidth = static_cast<std::uint32_t>(width);
  video.FrameHeight = static_cast<std::uint32_t>(height);
  video.BitDepth = caps_.video24 ? FF_DEPTH_24 : caps_.video32 ? FF_DEPTH_32 : 0;
  video.Orientation = FF_ORIENTATION_BOTTOMLEFT;
  const std::uintptr_t instance = library->Call(FF_INSTANTIATE, Address(&video), 0);
  if (library->IsLost()) return TellAfter(*library, true);
  if (PQIsPluginFailure(instance)) {
    Unload();
    Tell(true, "the plug-in makes no instance; no frames leave",
         "FF_INSTANTIATE failed for frames of " + std::to_string(width) + " by " + std::to_string(height) + " pixels");
    return;
  }
  library->instance.store(instance, std::memory_order_release);
  width_ = width, height_ = height;
  for (const auto& parameter : parameters_.Items()) parameter->ApplyCurrentValue();
  TellAfter(*library, false);
}

TPQFreeFrame::LibraryRef TPQFreeFrame::LibraryFor(std::int32_t width, std::int32_t height) {
  LibraryRef library = Library();
  if (library == nullptr || library->IsLost() || (width == width_ && height == height_)) return library;
  SetSize(width, height);
  return Library();
}

void TPQFreeFrame::TellAfter(PQPluginLibrary& library, bool failed) {
  if (const auto function = library.TakeException(); function && !std::exchange(told_exception_, true)) {
    Report(this, PQSeverity::Warning, "the plug-in raised an exception", 0,
           "in " + PQPluginFunctionName(*function) + "; that reads as the answer 0, here and in what follows");
  }
  if (library.IsLost()) {
    if (std::exchange(told_lost_, true)) return;
    Report(this, PQSeverity::Warning, "the plug-in is lost; frames pass unchanged until the next start", 0,
           library.WhyLost());
  } else if (failed && !std::exchange(told_failure_, true)) {
    Report(this, PQSeverity::Warning, "the plug-in failed on a frame", 0, "other such frames are not told");
  }
}

// --- stream ---------------------------------------------------------------------------------------------------------

void TPQFreeFrame::CalculateSendStart(double rate, std::int32_t width, std::int32_t height) {
  told_failure_ = told_exception_ = told_lost_ = false;
  stream_width_ = width, stream_height_ = height;
  InitPopulateCaps(true);
  // A file that could not be loaded when it was named may be there now.
  if (!parameters_read_.load(std::memory_order_acquire)) ReadParameters();
  SetSize(width, height);
  const auto inputs = Inputs();
  const std::int64_t delay = inputs.empty() ? 0 : inputs.front()->FrameDelay;
  OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(width, height, delay, vfRGB24));
  TPQMultiInput::CalculateSendStart(rate, width, height);
}

void TPQFreeFrame::IntStop() {
  Unload();
  for (auto& block : blocks_) block = {};
  TPQMultiInput::IntStop();
  Running = false;
}

void TPQFreeFrame::CalculateSendOutput() {
  if (PQImageRef frame = PrepareOutput()) OutputPin.SubmitBuffer(std::move(frame));
}

std::uint8_t* TPQFreeFrame::Block(std::size_t number, std::size_t bytes) {
  PQRef<TRWBlockBuffer>& block = blocks_[number];
  if (!block || static_cast<std::size_t>(block->GetCount()) != bytes) {
    block = PQMakeRef<TRWBlockBuffer>(static_cast<std::int32_t>(bytes));
    std::memset(block->Write(), 0, bytes);
  }
  return block->Modify();
}

PQImageRef TPQFreeFrame::PrepareOutput() {
  const std::uint32_t least = caps_.minimum_inputs, most = caps_.maximum_inputs;
  if (least == 1 && most == 1) {
    DirectFilter();
    return {};
  }
  std::vector<const TPQImageBuffer*> ready;
  std::int32_t width = 0, height = 0;
  for (const TPQJCQueuedImageSinkPin* input : Inputs()) {
    if (ready.size() >= most) break;
    if (!input->IsConnected() || !input->Started || !input->Buffer) continue;
    ready.push_back(static_cast<const TPQImageBuffer*>(input->Buffer.Get()));
    width = std::max(width, ready.back()->GetWidth()), height = std::max(height, ready.back()->GetHeight());
  }
  if (ready.size() < least) {
    DirectFilter();
    return {};
  }
  const bool empty = width < 1 || height < 1;
  const LibraryRef library = empty ? Library() : LibraryFor(width, height);
  if (library == nullptr) return {};
  if (empty || library->IsLost()) return PQMakeRef<TPQImageBuffer>(*ready.front());

  std::vector<PQRef<TPQImageBuffer>> padded;  // kept while the plug-in reads them
  std::vector<void*> inputs;
  for (const TPQImageBuffer* held : ready) {
    const TPQImageBuffer* frame = held;
    if (held->GetWidth() < width || held->GetHeight() < height) {
      padded.push_back(PQOnPage(*held, width, height));
      frame = padded.back().Get();
    }
    const std::uint8_t* data = frame->Read();
    if (convert32_) {
      std::uint8_t* const block = Block(2 + inputs.size(), FrameBytes(width, height, 4));
      ippiCopy_8u_C3AC4R(data, frame->GetStep(), block, width * 4, frame->GetSize());
      data = block;
    }
    inputs.push_back(const_cast<std::uint8_t*>(data));
  }
  auto output = PQMakeRef<TPQImageBuffer>(*ready.front());  // with its stamps
  output->SetSize(width, height);
  output->Clear();  // what a plug-in leaves out is black, not what was in that memory before
  std::uint8_t* target = output->Modify();
  if (convert32_) {
    target = Block(1, FrameBytes(width, height, 4));
    std::memset(target, 0, FrameBytes(width, height, 4));
  }
  const ProcessFrameCopyStruct record{static_cast<std::uint32_t>(inputs.size()), inputs.data(), target};
  const bool failed = Low(library->Call(FF_PROCESSFRAMECOPY, Address(&record),
                                        library->instance.load(std::memory_order_relaxed))) != FF_SUCCESS;
  TellAfter(*library, failed);
  if (library->IsLost()) return PQMakeRef<TPQImageBuffer>(*ready.front());
  if (failed) output->Clear();
  if (convert32_) ippiCopy_8u_AC4C3R(target, width * 4, output->Modify(), output->GetStep(), output->GetSize());
  return output;
}

void TPQFreeFrame::DirectFilter() {
  const auto inputs = Inputs();
  if (inputs.empty() || !inputs.front()->Buffer) return;
  const PQImageRef held = inputs.front()->Buffer;
  const auto& source = static_cast<const TPQImageBuffer&>(*held);
  const bool empty = source.GetWidth() < 1 || source.GetHeight() < 1;
  const LibraryRef library = empty ? Library() : LibraryFor(source.GetWidth(), source.GetHeight());
  if (library == nullptr) return;
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(source);
  if (!empty && !library->IsLost() && (caps_.video24 || caps_.video32)) {
    const bool done = caps_.video24 ? Process24Bit(*library, source, frame) : Process32Bit(*library, source, frame);
    if (!done) frame = PQMakeRef<TPQImageBuffer>(source);
    TellAfter(*library, !done);
  }
  OutputPin.SubmitBuffer(std::move(frame));
}

bool TPQFreeFrame::PrefersCopy() const {
  return caps_.process_copy && caps_.optimized_for == ofCopy && caps_.minimum_inputs == 1;
}

bool TPQFreeFrame::Process24Bit(PQPluginLibrary& library, const TPQImageBuffer& source, PQImageRef& frame) {
  const std::uintptr_t instance = library.instance.load(std::memory_order_relaxed);
  if (!PrefersCopy()) {
    const auto bytes = static_cast<std::size_t>(source.GetByteSize());
    std::uint8_t* const lent = library.FrameMemory(bytes);
    if (lent == nullptr) return Low(library.Call(FF_PROCESSFRAME, Address(frame->Modify()), instance)) == FF_SUCCESS;
    std::memcpy(lent, source.Read(), bytes);
    if (Low(library.Call(FF_PROCESSFRAME, Address(lent), instance)) != FF_SUCCESS) return false;
    std::memcpy(frame->Write(), lent, bytes);
    return true;
  }
  std::uint8_t* const pixels = frame->Modify();
  void* input = const_cast<std::uint8_t*>(source.Read());  // the frame as it came, apart from `pixels` now
  const ProcessFrameCopyStruct record{1, &input, pixels};
  return Low(library.Call(FF_PROCESSFRAMECOPY, Address(&record), instance)) == FF_SUCCESS;
}

bool TPQFreeFrame::Process32Bit(PQPluginLibrary& library, const TPQImageBuffer& source, PQImageRef& frame) {
  const IppiSize size = source.GetSize();
  const std::size_t bytes = FrameBytes(size.width, size.height, 4);
  std::uint8_t* const lent = library.FrameMemory(bytes);
  std::uint8_t* const block = lent != nullptr ? lent : Block(0, bytes);
  ippiCopy_8u_C3AC4R(source.Read(), source.GetStep(), block, size.width * 4, size);
  const std::uintptr_t instance = library.instance.load(std::memory_order_relaxed);
  std::uint32_t answer;
  if (PrefersCopy()) {
    // The input is the frame in 24 bits; a plug-in that reads it as 32 stays within the block.
    std::uint8_t* const duplicate = Block(1, bytes);
    std::memcpy(duplicate, source.Read(), static_cast<std::size_t>(source.GetByteSize()));
    void* input = duplicate;
    const ProcessFrameCopyStruct record{1, &input, block};
    answer = Low(library.Call(FF_PROCESSFRAMECOPY, Address(&record), instance));
  } else {
    answer = Low(library.Call(FF_PROCESSFRAME, Address(block), instance));
  }
  if (answer != FF_SUCCESS) return false;
  ippiCopy_8u_AC4C3R(block, size.width * 4, frame->Write(), frame->GetStep(), size);
  return true;
}

void PQFreeFrame::Register() {
  const PQClassInfo* const classes[] = {&TPQFreeFrame::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
