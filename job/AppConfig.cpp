#include "job/AppConfig.h"

#include <filesystem>

#include "audit/HuntErr.h"
#include "core/BooleanText.h"
#include "job/PropertyBagHelper.h"
#include "store/XMLWrapper.h"

namespace tessel {

AppConfig AppConfig::Load(const std::string& folder) {
  try {
    AppConfig config;
    config.folder_ = folder;
    XMLWrapper document;
    document.OpenXMLDocument((std::filesystem::path(folder) / kFileName).string());
    PropertyBagHelper bag(document);
    auto path = [&](const char* key) {
      std::filesystem::path value = bag.Property(key);
      if (!value.empty() && value.is_relative()) value = std::filesystem::path(folder) / value;
      return value.string();
    };
    config.defaultCharSet_ = bag.Property("DEFCHARSET");
    config.debugPath_ = path("DEBUGPATH");
    config.workPath_ = path("WORKPATH");
    config.jobConfPath_ = path("JOBCONFPATH");
    config.databaseText_ = bag.Property("DBCONAX");
    config.accpacTrace_ = bag.HasProperty("ACCPACTRACE") && BooleanText::Parse(bag.Property("ACCPACTRACE"));
    config.queueText_ = bag.HasProperty("LOGQUEUE") ? bag.Property("LOGQUEUE") : "embedded:" + config.databaseText_;
    for (xmlNodePtr option : document.GetNodesFromXPath("/*/OPTIONS/OPTION")) {
      if (document.HasAttribute(option, "name") && document.HasAttribute(option, "value")) {
        config.values_[document.GetAttributeFromNode(option, "name")] = document.GetAttributeFromNode(option, "value");
      }
    }
    return config;
  } catch (...) {
    ErrorInRethrow("AppConfig.Load(sFolder)", {Variant(folder)});
  }
}

void AppConfig::Write(const std::string& folder, const std::map<std::string, std::string>& values) {
  try {
    XMLWrapper document;
    document.CreateDocument();
    xmlDocPtr doc = document.DOMDocument();
    xmlNodePtr root = xmlNewDocNode(doc, nullptr, BAD_CAST "APPCONFIG", nullptr);
    xmlAddChild(reinterpret_cast<xmlNodePtr>(doc), root);
    xmlNodePtr options = xmlNewChild(root, nullptr, BAD_CAST "OPTIONS", nullptr);
    for (const auto& [name, value] : values) {
      xmlNodePtr option = xmlNewChild(options, nullptr, BAD_CAST "OPTION", nullptr);
      xmlSetProp(option, BAD_CAST "name", BAD_CAST name.c_str());
      xmlSetProp(option, BAD_CAST "value", BAD_CAST value.c_str());
    }
    document.SaveDocument((std::filesystem::path(folder) / kFileName).string());
  } catch (...) {
    ErrorInRethrow("AppConfig.Write(sFolder)", {Variant(folder)});
  }
}

std::string AppConfig::Value(const std::string& key, const std::string& fallback) const {
  auto found = values_.find(key);
  return found == values_.end() ? fallback : found->second;
}

}  // namespace tessel
