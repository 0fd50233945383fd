#include "store/RecordImage.h"

#include <libxml/parserInternals.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <unordered_map>

#include "store/DataNodes.h"
#include "store/XmlHeap.h"

namespace tessel {

namespace {

// Elements and attributes begin alike up to `doc`: the links and the
// document are set at the same places in both.
static_assert(offsetof(xmlNode, parent) == offsetof(xmlAttr, parent));
static_assert(offsetof(xmlNode, next) == offsetof(xmlAttr, next));
static_assert(offsetof(xmlNode, prev) == offsetof(xmlAttr, prev));
static_assert(offsetof(xmlNode, doc) == offsetof(xmlAttr, doc));
constexpr uint32_t kDocOffset = offsetof(xmlNode, doc);
// Copy tells the two apart by their size.
static_assert(sizeof(xmlNode) != sizeof(xmlAttr));

}  // namespace

RecordImage::RecordImage(Key) {}

std::unique_ptr<RecordImage> RecordImage::Make(xmlNodePtr model) {
  if (model == nullptr || model->doc == nullptr || model->doc->dict == nullptr) return nullptr;
  auto image = std::make_unique<RecordImage>(Key());
  image->templateDoc_ = model->doc;
  if (!image->AddElement(model)) return nullptr;
  std::unordered_map<const void*, uint32_t> indexes;
  for (uint32_t i = 0; i < image->sources_.size(); ++i) indexes.emplace(image->sources_[i], i);
  for (uint32_t i = 0; i < image->sources_.size(); ++i) image->AddLinks(i, indexes);
  image->FindFields(model, indexes);
  image->blocks_.assign(image->sources_.size() + 2 * image->fieldValues_.size() + 1, nullptr);
  return image;
}

void RecordImage::FindFields(xmlNodePtr model, const std::unordered_map<const void*, uint32_t>& indexes) {
  std::vector<std::string> names;
  std::vector<uint32_t> values;
  for (xmlNodePtr field = model->children; field != nullptr; field = field->next) {
    xmlAttrPtr name = field->properties;
    xmlNodePtr only = field->children;
    const char* text = name != nullptr ? DataNodes::SingleText(name) : nullptr;
    if (!DataNodes::IsElement(field, "FIELD") || name == nullptr || name->next != nullptr ||
        !DataNodes::SameLiteral(name->name, "name") ||
        text == nullptr || only == nullptr || only->next != nullptr || only->children != nullptr ||
        only->properties != nullptr || !DataNodes::IsElement(only, "VALUES")) {
      return;
    }
    names.emplace_back(text);
    values.push_back(indexes.at(only));
  }
  valueName_ = xmlDictLookup(templateDoc_->dict, reinterpret_cast<const xmlChar*>("VALUE"), -1);
  if (valueName_ == nullptr) return;
  fieldNames_ = std::move(names);
  fieldValues_ = std::move(values);
  filledSizes_ = sizes_;
  filledSizes_.insert(filledSizes_.end(), 2 * fieldValues_.size(), static_cast<uint16_t>(sizeof(xmlNode)));
  longTexts_.assign(fieldValues_.size(), nullptr);
}

bool RecordImage::AddElement(xmlNodePtr element) {
  if (element->type != XML_ELEMENT_NODE || element->ns != nullptr || element->nsDef != nullptr ||
      element->content != nullptr || element->_private != nullptr || element->psvi != nullptr ||
      element->line != 0 || element->extra != 0 || element->doc != templateDoc_ ||
      xmlDictOwns(templateDoc_->dict, element->name) != 1) {
    return false;
  }
  sources_.push_back(element);
  sizes_.push_back(sizeof(xmlNode));
  for (xmlAttrPtr a = element->properties; a != nullptr; a = a->next) {
    xmlNodePtr text = a->children;
    if (a->type != XML_ATTRIBUTE_NODE || a->ns != nullptr || a->_private != nullptr || a->psvi != nullptr ||
        a->atype != 0 || a->doc != templateDoc_ || xmlDictOwns(templateDoc_->dict, a->name) != 1 ||
        text == nullptr || text != a->last || text->type != XML_TEXT_NODE || text->next != nullptr) {
      return false;
    }
    sources_.push_back(a);
    sizes_.push_back(sizeof(xmlAttr));
    if (XmlHeap::IsCounted(text)) {
      sharedTexts_.push_back(text);
      continue;
    }
    // A text of the attribute's own is copied with it: its text is either
    // inside the node, moving with it, or the dictionary's.
    // A text inside the node fills the room of `properties` and `nsDef`.
    const auto* inside = reinterpret_cast<const xmlChar*>(&text->properties);
    if (text->_private != nullptr || text->psvi != nullptr || text->line != 0 || text->extra != 0 ||
        text->doc != templateDoc_ || text->content == nullptr || text->name != xmlStringText || text->ns != nullptr ||
        (text->content != inside && (text->nsDef != nullptr || xmlDictOwns(templateDoc_->dict, text->content) != 1))) {
      return false;
    }
    if (text->content == inside) textsInside_.push_back(static_cast<uint32_t>(sources_.size()));
    sources_.push_back(text);
    sizes_.push_back(sizeof(xmlNode));
  }
  for (xmlNodePtr child = element->children; child != nullptr; child = child->next) {
    if (!AddElement(child)) return false;
  }
  return true;
}

void RecordImage::AddLinks(uint32_t index, const std::unordered_map<const void*, uint32_t>& indexes) {
  const void* source = sources_[index];
  const auto none = static_cast<uint32_t>(sources_.size());
  auto link = [&](const void* target, uint32_t offset) {
    // A field the template leaves empty stays empty in the copy. The root's
    // place among the template document's nodes is not part of the image
    // (it changes as templates are added): Copy clears it.
    if (target == nullptr) return;
    auto found = indexes.find(target);
    links_.push_back(Link{index, offset, found != indexes.end() ? found->second : none});
  };
  if (index == 0) {
    auto* root = static_cast<const xmlNode*>(source);
    link(root->children, offsetof(xmlNode, children));
    link(root->last, offsetof(xmlNode, last));
    link(root->properties, offsetof(xmlNode, properties));
    return;
  }
  if (sizes_[index] == sizeof(xmlAttr)) {
    auto* a = static_cast<const xmlAttr*>(source);
    link(a->parent, offsetof(xmlAttr, parent));
    link(a->next, offsetof(xmlAttr, next));
    link(a->prev, offsetof(xmlAttr, prev));
    // A shared text is no node of the image: the copy holds it as it is.
    if (indexes.count(a->children) != 0) {
      link(a->children, offsetof(xmlAttr, children));
      link(a->last, offsetof(xmlAttr, last));
    }
    return;
  }
  auto* e = static_cast<const xmlNode*>(source);
  if (e->type == XML_TEXT_NODE) {
    // An attribute's own text: where an element has its attributes, a text
    // may hold its text, which is no link.
    link(e->parent, offsetof(xmlNode, parent));
    return;
  }
  link(e->parent, offsetof(xmlNode, parent));
  link(e->next, offsetof(xmlNode, next));
  link(e->prev, offsetof(xmlNode, prev));
  link(e->children, offsetof(xmlNode, children));
  link(e->last, offsetof(xmlNode, last));
  link(e->properties, offsetof(xmlNode, properties));
}

bool RecordImage::CopiesInto(xmlDocPtr doc) const {
  return doc != nullptr && doc->dict != nullptr && doc->dict == templateDoc_->dict && DataNodes::PlainConstruction();
}

xmlNodePtr RecordImage::Copy(xmlDocPtr doc) const {
  DataNodes::AllocateNodes(sizes_.data(), sources_.size(), blocks_.data());
  return CopyInto(doc);
}

xmlNodePtr RecordImage::CopyFilled(xmlDocPtr doc, std::span<const std::string_view> texts) const {
  // Texts that do not fit in their node are made first: nothing can fail
  // once the nodes are there.
  size_t filled = 0;
  for (size_t i = 0; i < texts.size(); ++i) {
    if (texts[i].empty()) continue;
    ++filled;
    if (DataNodes::FitsInTextNode(texts[i].size())) continue;
    longTexts_[i] = xmlStrndup(reinterpret_cast<const xmlChar*>(texts[i].data()), static_cast<int>(texts[i].size()));
    if (longTexts_[i] == nullptr) {
      for (size_t made = 0; made < i; ++made) {
        if (longTexts_[made] != nullptr) xmlFree(longTexts_[made]);
        longTexts_[made] = nullptr;
      }
      throw std::bad_alloc();
    }
  }
  try {
    DataNodes::AllocateNodes(filledSizes_.data(), sources_.size() + 2 * filled, blocks_.data());
  } catch (...) {
    for (xmlChar*& text : longTexts_) {
      if (text != nullptr) xmlFree(text);
      text = nullptr;
    }
    throw;
  }
  // The slot after the image's nodes stands for "no node" in its links: the
  // first node added waits aside while they are set.
  void* const firstAdded = blocks_[sources_.size()];
  blocks_[sources_.size()] = nullptr;
  xmlNodePtr root = CopyInto(doc);
  blocks_[sources_.size()] = firstAdded;
  size_t next = sources_.size();
  for (size_t i = 0; i < texts.size(); ++i) {
    if (texts[i].empty()) continue;
    auto* values = static_cast<xmlNodePtr>(blocks_[fieldValues_[i]]);
    // As DataNodes::NewValue makes them.
    auto* value = static_cast<xmlNodePtr>(std::memset(blocks_[next++], 0, sizeof(xmlNode)));
    auto* text = static_cast<xmlNodePtr>(std::memset(blocks_[next++], 0, sizeof(xmlNode)));
    value->type = XML_ELEMENT_NODE;
    value->name = valueName_;
    value->doc = doc;
    value->parent = values;
    value->children = value->last = text;
    text->type = XML_TEXT_NODE;
    text->name = xmlStringText;
    text->doc = doc;
    text->parent = value;
    if (longTexts_[i] != nullptr) {
      text->content = longTexts_[i];
      longTexts_[i] = nullptr;
    } else {
      DataNodes::PutTextInNode(text, texts[i]);
    }
    values->children = values->last = value;
  }
  blocks_[sources_.size()] = nullptr;
  return root;
}

xmlNodePtr RecordImage::CopyInto(xmlDocPtr doc) const {
  const size_t count = sources_.size();
  void** blocks = blocks_.data();
  for (size_t i = 0; i < count; ++i) {
    if (sizes_[i] == sizeof(xmlNode)) {
      std::memcpy(blocks[i], sources_[i], sizeof(xmlNode));
    } else {
      std::memcpy(blocks[i], sources_[i], sizeof(xmlAttr));
    }
    std::memcpy(static_cast<char*>(blocks[i]) + kDocOffset, &doc, sizeof doc);
  }
  for (uint32_t index : textsInside_) {
    auto* text = static_cast<xmlNodePtr>(blocks[index]);
    text->content = reinterpret_cast<xmlChar*>(&text->properties);
  }
  auto* root = static_cast<xmlNodePtr>(blocks[0]);
  root->parent = root->next = root->prev = nullptr;
  for (const Link& link : links_) {
    std::memcpy(static_cast<char*>(blocks[link.node]) + link.offset, &blocks[link.target], sizeof(void*));
  }
  // Each attribute's value is the template's shared text: one more holder.
  for (void* text : sharedTexts_) XmlHeap::Retain(text);
  return root;
}

}  // namespace tessel
