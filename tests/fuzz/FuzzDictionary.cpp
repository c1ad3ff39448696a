// Prints a dictionary of what the registered classes describe: names of classes, properties, pins and values. As text,
// or as they stand in a binary stream.
#include <cstdio>
#include <set>
#include <string>

#include "pantiq/design/PQRegister.h"
#include "pantiq/host/PQBinaryStream.h"
#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQRegistry.h"

namespace {

using namespace pantiq;
std::set<std::string> entries;
bool binary = false;

void Add(PQTag tag, const std::string& text) {
  if (text.empty()) return;
  if (!binary) {
    entries.insert(text);
    return;
  }
  PQBinaryWriter writer;
  const std::size_t head = writer.Result().size();
  writer.Text(tag, text);
  entries.insert(std::string(writer.Result().begin() + static_cast<std::ptrdiff_t>(head), writer.Result().end()));
}

void Describe(const PQClassInfo& info, TPersistent* object, int depth) {
  for (const PQProperty& property : info.Properties()) {
    Add(PQTag::Text, property.name);
    for (const PQWord& word : property.words) Add(PQTag::Word, std::string(word.name));
    TPersistent* const part = property.object && object != nullptr ? property.object(*object) : nullptr;
    if (part == nullptr || depth > 4) continue;
    Describe(part->ClassInfo(), part, depth + 1);
    if (auto* items = PQCast<TCollection>(part)) Describe(items->ItemClassInfo(), items->Add(), depth + 1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  binary = argc > 1 && std::string(argv[1]) == "stream";
  RegisterAll();
  for (const PQClassInfo* info : PQRegisteredClasses()) {
    Add(PQTag::Text, info->Name());
    PQOwned<TComponent> component(info->Create(nullptr));
    Describe(*info, component.get(), 0);
  }
  if (binary) {
    for (int tag = 0; tag <= static_cast<int>(PQTag::Link); ++tag)
      entries.insert(std::string(1, static_cast<char>(tag)));
  } else {
    for (const char* word : {"pantiq graph 1\n", "object ", "item\n", "end\n", " = ", " ! ", "Name=", "true", "false",
                             "[0]", "''", "{00", "(1 2)", "# "}) {
      entries.insert(word);
    }
  }
  for (const std::string& entry : entries) {
    std::fputc('"', stdout);
    for (const char c : entry) {
      const auto byte = static_cast<unsigned char>(c);
      if (byte < 32 || byte > 126 || c == '"' || c == '\\') {
        std::printf("\\x%02x", byte);
      } else {
        std::fputc(c, stdout);
      }
    }
    std::fputs("\"\n", stdout);
  }
  return 0;
}
