// Graph files and binary streams.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "pantiq/core/PQGraphImpl.h"
#include "pantiq/host/PQRegistry.h"

namespace pantiq {
namespace {

using detail::GraphBuilder;
using detail::GraphPlace;
using detail::MakeFault;

constexpr std::size_t kMostFileBytes = std::size_t{1} << 30;

PQStatus CheckPages(const std::vector<TComponent*>& components) {
  for (const TComponent* component : components) {
    const std::string& class_name = component->ClassInfo().Name();
    if (PQPageOf(component->ClassInfo()) == kPantiqPage) continue;
    return {PQCode::Refused, component->GetName() + ": " + class_name +
                                 " is no component of the library and cannot be stored; expected classes of the page " +
                                 std::string(kPantiqPage)};
  }
  return {};
}

PQTextNode Line(PQTextNode::Kind kind, std::string text) {
  PQTextNode node;
  node.kind = kind;
  node.head = std::move(text);
  return node;
}

}  // namespace

void detail::ReadGraphTree(const PQTextNode& root, GraphPlan& plan) {
  for (const PQTextNode& node : root.children) {
    if (node.kind != PQTextNode::Kind::Object) continue;
    PlannedComponent component;
    // Names that are none have been told already.
    if (PQIsIdentifier(node.path)) component.name = node.path;
    if (PQIsIdentifier(node.class_name)) component.class_name = node.class_name;
    component.name_place = {node.line, node.column, static_cast<int>(node.path.size())};
    component.class_place = {node.value_line, node.value_column, static_cast<int>(node.class_name.size())};
    component.settings = PQSettingsOf(node);
    plan.components.push_back(std::move(component));
  }
}

void PQGraph::Impl::ReadText(bool designing, std::vector<PQFault>& faults) {
  PQTextOptions options;
  options.header = detail::kGraphHeader;
  options.objects = true;
  PQParseText(source, options, document, faults);
  detail::GraphPlan plan;
  detail::ReadGraphTree(document, plan);
  Build(plan, designing, faults);
}

bool PQGraph::Load(const std::string& file_name, std::vector<PQFault>& faults) {
  const auto fail = [&](const char* why) {
    PQFault fault = MakeFault({}, "'" + file_name + "' cannot be read: " + why, "a graph file");
    fault.value = file_name;
    faults.push_back(std::move(fault));
    return false;
  };
  std::error_code error;
  if (std::filesystem::is_directory(file_name, error)) return fail("it is a directory");
  errno = 0;
  std::ifstream file(file_name, std::ios::binary);
  if (!file) return fail(std::strerror(errno != 0 ? errno : EIO));
  std::string text;  // bounded: a device has no end
  char block[65536];
  while (file.read(block, sizeof block), file.gcount() > 0) {
    text.append(block, static_cast<std::size_t>(file.gcount()));
    if (text.size() > kMostFileBytes) return fail("it is too long");
  }
  if (file.bad()) return fail(std::strerror(errno != 0 ? errno : EIO));
  return LoadText(text, faults);
}

PQStatus PQGraph::SaveText(std::string& text, const PQSaveOptions& options) const {
  if (PQStatus status = CheckPages(GetComponents()); !status.Ok()) return status;
  PQTextNode document = impl_->document;
  if (document.children.empty())
    document.children.push_back(Line(PQTextNode::Kind::Header, std::string(detail::kGraphHeader)));
  PQTextUpdate how;
  how.pictures_by_name = !options.pictures_inside;
  how.same_link = [this](const std::string& written, const std::string& present) {
    PQFault fault;
    const TJCPin* const a = detail::FindPinOf(impl_->root, written, PQPinRole::Source, fault);
    const TJCPin* const b = detail::FindPinOf(impl_->root, present, PQPinRole::Source, fault);
    return a != nullptr && a == b;
  };
  std::vector<const TComponent*> written;
  std::erase_if(document.children, [&](PQTextNode& node) {
    if (node.kind != PQTextNode::Kind::Object) return false;
    const TComponent* const component = Find(node.path);
    if (component == nullptr || component->ClassInfo().Name() != node.class_name) return true;
    PQUpdateText(node, *component, how);
    written.push_back(component);
    return false;
  });
  for (const TComponent* component : GetComponents()) {
    if (std::find(written.begin(), written.end(), component) != written.end()) continue;
    document.children.push_back(Line(PQTextNode::Kind::Trivia, {}));
    PQTextNode node =
        Line(PQTextNode::Kind::Object, "object " + component->GetName() + ": " + component->ClassInfo().Name());
    node.foot = "end";
    if (const auto untold = impl_->untold.find(component); untold != impl_->untold.end()) {
      for (const PQTextSetting& setting : untold->second) {
        PQTextNode line = Line(PQTextNode::Kind::Value, "  " + setting.path + " = ");
        line.path = setting.path, line.value = setting.value;
        node.children.push_back(std::move(line));
      }
    }
    PQUpdateText(node, *component, how);
    document.children.push_back(std::move(node));
  }
  text = PQTextOf(document);
  return {};
}

PQStatus PQGraph::Save(const std::string& file_name, const PQSaveOptions& options) const {
  std::string text;
  if (PQStatus status = SaveText(text, options); !status.Ok()) return status;
  const auto fail = [&](const std::string& why) {
    return PQStatus(PQCode::Io,
                    "'" + file_name + "' cannot be written: " + why + "; expected a place for a graph file");
  };
  // Beside the old file first, so that a full disk leaves that one whole. What is no plain file is written in place.
  std::error_code error;
  const bool exists = std::filesystem::exists(file_name, error);
  const bool in_place = exists && !std::filesystem::is_regular_file(file_name, error);
  const std::string target = in_place ? file_name : file_name + ".part";
  errno = 0;
  {
    std::ofstream file(target, std::ios::binary | std::ios::trunc);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    if (!file) {
      const std::string why = std::strerror(errno != 0 ? errno : EIO);
      if (!in_place) std::filesystem::remove(target, error);
      return fail(why);
    }
  }
  if (in_place) return {};
  if (exists) {
    const std::filesystem::perms mode = std::filesystem::status(file_name, error).permissions();
    if (!error) std::filesystem::permissions(target, mode, error);
  }
  std::filesystem::rename(target, file_name, error);
  if (!error) return {};
  const std::string why = error.message();
  std::filesystem::remove(target, error);
  return fail(why);
}

// A list of name, class and properties of each component.
PQStatus PQGraph::SaveBinary(std::vector<std::uint8_t>& bytes) const {
  if (PQStatus status = CheckPages(GetComponents()); !status.Ok()) return status;
  PQBinaryWriter writer;
  writer.Tag(PQTag::List);
  for (const TComponent* component : GetComponents()) {
    writer.Text(PQTag::Text, component->GetName());
    writer.Text(PQTag::Text, component->ClassInfo().Name());
    writer.Object(*component);
  }
  writer.Tag(PQTag::End);
  bytes = writer.Result();
  return {};
}

bool PQGraph::LoadBinary(std::span<const std::uint8_t> bytes, std::vector<PQFault>& faults) {
  std::vector<PQFault> told;
  auto fresh = std::make_unique<Impl>();
  GraphBuilder builder(fresh->root, designing_, told);
  PQBinaryReader reader(bytes, told);
  std::vector<PQBinaryLink> links;
  if (reader.Ok() && !reader.Take(PQTag::List)) reader.Malformed("the components are missing", "tag 13");
  while (reader.Ok() && !reader.Take(PQTag::End)) {
    const std::size_t offset = reader.Offset();
    std::string name, class_name;
    if (!reader.ReadText(name) || !reader.ReadText(class_name)) break;
    const PQClassInfo* const info = PQFindClass(class_name);
    const auto bad = [&](std::string text, std::string expected) {
      PQFault fault = MakeFault({}, "at byte " + std::to_string(offset) + ": " + std::move(text), std::move(expected));
      fault.offset = offset;
      told.push_back(std::move(fault));
      return reader.Skip();
    };
    if (!PQIsIdentifier(name) || fresh->root.FindComponent(name) != nullptr) {
      bad("a component's name is none, or taken", "a name of its own");
    } else if (info == nullptr) {
      bad("there is no such class as that of " + name, "the name of a component's class");
    } else if (TComponent* const component = builder.Make(*info, name, {})) {
      reader.ReadObject(*component, name, links);
    } else {
      reader.Skip();
    }
  }
  if (reader.Ok() && !reader.AtEnd()) reader.Malformed("there is more behind the graph", "the end");
  if (reader.Ok()) {
    std::vector<detail::GraphLink> connections;
    for (const PQBinaryLink& link : links) {
      detail::GraphLink connection;
      connection.sink = fresh->root.FindComponent(link.component);
      connection.sink_path = link.path, connection.source_path = link.target, connection.offset = link.offset;
      connections.push_back(std::move(connection));
    }
    builder.Connect(std::move(connections));
  }
  builder.Finish();
  return Take(std::move(fresh), told, faults);
}

}  // namespace pantiq
