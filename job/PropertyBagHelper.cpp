#include "job/PropertyBagHelper.h"

#include "audit/HuntErr.h"
#include "core/BooleanText.h"
#include "core/Error.h"
#include "store/XMLWrapper.h"

namespace tessel {

namespace {
constexpr int32_t kErrPropertyIsList = 9520;
constexpr int32_t kErrInvalidOptionId = 9521;

}  // namespace

void PropertyBagHelper::Initialise(XMLWrapper& wrapper) {
  try {
    wrapper_ = &wrapper;
    optionsNode_ = nullptr;
    xmlNodePtr root = xmlDocGetRootElement(wrapper.DOMDocument());
    if (root == nullptr) return;
    std::string path = "/" + std::string(reinterpret_cast<const char*>(root->name)) + "/OPTIONS";
    auto nodes = wrapper.GetNodesFromXPath(path);
    if (nodes.size() == 1) optionsNode_ = nodes.front();
  } catch (...) {
    ErrorInRethrow("PropertyBagHelper.Initialise(xWrapper)", {});
  }
}

std::string PropertyBagHelper::OptionPath(std::string_view name) const {
  std::string path;
  path.reserve(name.size() + 24);
  path.append("OPTION[@name='").append(name).append("']");
  return path;
}

std::string PropertyBagHelper::PropertyName(long id) {
  try {
    long children = 0;
    if (optionsNode_ != nullptr) {
      for (xmlNodePtr child = optionsNode_->children; child; child = child->next) ++children;
    }
    Check(id > 0 && id < children, kErrInvalidOptionId, "%1 is not a valid option id.", {Variant(static_cast<int32_t>(id))});
    xmlNodePtr option = wrapper_->GetNodeFromXPath("OPTION[" + std::to_string(id) + "]", optionsNode_);
    return wrapper_->GetAttributeFromNode(option, "name");
  } catch (...) {
    ErrorInRethrow("PropertyBagHelper.PropertyName(lId)", {Variant(static_cast<int32_t>(id))});
  }
}

std::string PropertyBagHelper::Property(std::string_view name) {
  try {
    Check(!PropertyIsList(name), kErrPropertyIsList, "Property is a list item and cannot be retrieved.");
    xmlNodePtr option = wrapper_->GetNodeFromXPath(OptionPath(name), optionsNode_);
    return wrapper_->GetAttributeFromNode(option, "value");
  } catch (...) {
    ErrorInRethrow("PropertyBagHelper.Property(sName)", {Variant(std::string(name))});
  }
}

bool PropertyBagHelper::PropertyIsList(std::string_view name) {
  try {
    xmlNodePtr option = wrapper_->GetNodeFromXPath(OptionPath(name), optionsNode_);
    return BooleanText::Parse(wrapper_->GetAttributeFromNode(option, "list"));
  } catch (...) {
    return false;
  }
}

std::vector<std::string> PropertyBagHelper::GetList(std::string_view name) {
  try {
    std::vector<std::string> values;
    if (PropertyIsList(name)) {
      for (xmlNodePtr node : wrapper_->GetNodesFromXPath(OptionPath(name) + "/VALUES/*", optionsNode_)) {
        values.push_back(XMLWrapper::NodeText(node));
      }
    } else {
      values.push_back(Property(name));
    }
    return values;
  } catch (...) {
    ErrorInRethrow("PropertyBagHelper.GetList(sName)", {Variant(std::string(name))});
  }
}

bool PropertyBagHelper::HasProperty(std::string_view name) {
  try {
    return wrapper_->GetNodesFromXPath(OptionPath(name), optionsNode_).size() == 1;
  } catch (...) {
    ErrorInRethrow("PropertyBagHelper.HasProperty(sName)", {Variant(std::string(name))});
  }
}

void PropertyBagHelper::SetProperty(std::string_view name, std::string_view value) {
  try {
    xmlNodePtr parent = optionsNode_;
    if (parent == nullptr) parent = xmlDocGetRootElement(wrapper_->DOMDocument());
    if (parent == nullptr) return;
    xmlNodePtr option = xmlNewChild(parent, nullptr, BAD_CAST "OPTION", nullptr);
    std::string nameText(name), valueText(value);
    xmlSetProp(option, BAD_CAST "name", BAD_CAST nameText.c_str());
    xmlSetProp(option, BAD_CAST "value", BAD_CAST valueText.c_str());
  } catch (...) {
  }
}

}  // namespace tessel
