#include "pantiq/platform/gst/PQGstFrames.h"

#include <mutex>
#include <thread>
#include <utility>

#include "pantiq/platform/gst/PQGstCommon.h"

namespace pantiq::gst {
namespace {

constexpr const char* kMemoryType = "PantiqFrame";
constexpr int kMostLooks = 200;

struct FrameMemory {
  GstMemory base;
  std::uint8_t* data;
  std::shared_ptr<void>* owner;
};

struct FrameAllocator {
  GstAllocator base;
  FrameSource* source;
  gsize step, rows;
};
struct FrameAllocatorClass {
  GstAllocatorClass base;
};

GType FrameAllocatorType();
GstAllocatorClass* ParentClass() {
  return GST_ALLOCATOR_CLASS(g_type_class_peek_parent(g_type_class_peek(FrameAllocatorType())));
}

GstMemory* Alloc(GstAllocator* allocator, gsize size, GstAllocationParams* params) {
  auto* self = reinterpret_cast<FrameAllocator*>(allocator);
  std::uint8_t* data = nullptr;
  std::shared_ptr<void> owner;
  // What needs room of its own around it is not a frame.
  if (size == self->step * self->rows && params->prefix == 0 && params->padding == 0 && *self->source) {
    owner = (*self->source)(static_cast<std::int64_t>(self->step), static_cast<std::int64_t>(self->rows), data);
  }
  if (owner == nullptr || data == nullptr || (reinterpret_cast<std::uintptr_t>(data) & params->align) != 0) {
    return gst_allocator_alloc(nullptr, size, params);
  }
  const std::lock_guard lock(SeamMutex());
  auto* memory = new FrameMemory{};
  memory->data = data;
  memory->owner = new std::shared_ptr<void>(std::move(owner));
  gst_memory_init(GST_MEMORY_CAST(memory), GST_MEMORY_FLAG_NO_SHARE, allocator, nullptr, size, params->align, 0, size);
  return GST_MEMORY_CAST(memory);
}

void Free(GstAllocator*, GstMemory* memory) {
  std::shared_ptr<void> last;
  const std::lock_guard lock(SeamMutex());
  auto* frame = reinterpret_cast<FrameMemory*>(memory);
  last = std::move(*frame->owner);
  delete frame->owner;
  delete frame;
}

gpointer Map(GstMemory* memory, gsize, GstMapFlags) { return reinterpret_cast<FrameMemory*>(memory)->data; }
void Unmap(GstMemory*) {}

void Finalize(GObject* object) {
  delete reinterpret_cast<FrameAllocator*>(object)->source;
  G_OBJECT_CLASS(ParentClass())->finalize(object);
}

void InitClass(gpointer type_class, gpointer) {
  GST_ALLOCATOR_CLASS(type_class)->alloc = Alloc;
  GST_ALLOCATOR_CLASS(type_class)->free = Free;
  G_OBJECT_CLASS(type_class)->finalize = Finalize;
}

void InitInstance(GTypeInstance* instance, gpointer) {
  GstAllocator* allocator = GST_ALLOCATOR_CAST(instance);
  allocator->mem_type = kMemoryType;
  allocator->mem_map = Map;
  allocator->mem_unmap = Unmap;
  GST_OBJECT_FLAG_SET(allocator, GST_ALLOCATOR_FLAG_CUSTOM_ALLOC);
}

GType FrameAllocatorType() {
  static const GType type = [] {
    GTypeInfo info{};
    info.class_size = sizeof(FrameAllocatorClass);
    info.class_init = InitClass;
    info.instance_size = sizeof(FrameAllocator);
    info.instance_init = InitInstance;
    return g_type_register_static(GST_TYPE_ALLOCATOR, "PantiqFrameAllocator", &info, static_cast<GTypeFlags>(0));
  }();
  return type;
}

}  // namespace

GstAllocator* MakeFrameAllocator(FrameSource source, const GstVideoInfo& info) {
  auto* allocator = reinterpret_cast<FrameAllocator*>(g_object_new(FrameAllocatorType(), nullptr));
  gst_object_ref_sink(allocator);
  allocator->source = new FrameSource(std::move(source));
  allocator->step = static_cast<gsize>(GST_VIDEO_INFO_PLANE_STRIDE(&info, 0));
  allocator->rows = static_cast<gsize>(GST_VIDEO_INFO_HEIGHT(&info));
  return GST_ALLOCATOR_CAST(allocator);
}

std::shared_ptr<void> TakeFrameMemory(GstBuffer* buffer, const std::uint8_t*& data) {
  // The thread that brought the buffer lets go of it a moment after it can be pulled. A decoder that keeps frames to
  // predict from does not: it holds the buffer or its memory too.
  for (int look = 0; look < kMostLooks; ++look) {
    {
      const std::lock_guard lock(SeamMutex());
      if (gst_buffer_n_memory(buffer) != 1) return nullptr;
      GstMemory* memory = gst_buffer_peek_memory(buffer, 0);
      if (memory->allocator == nullptr || !gst_memory_is_type(memory, kMemoryType)) return nullptr;
      if (g_atomic_int_get(&GST_MINI_OBJECT_REFCOUNT(buffer)) == 1 &&
          g_atomic_int_get(&GST_MINI_OBJECT_REFCOUNT(memory)) == 1) {
        // The buffer came from a pool, which shall not use this memory again.
        GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_TAG_MEMORY);
        data = reinterpret_cast<FrameMemory*>(memory)->data;
        return std::move(*reinterpret_cast<FrameMemory*>(memory)->owner);
      }
    }
    std::this_thread::yield();
  }
  return nullptr;
}

}  // namespace pantiq::gst
