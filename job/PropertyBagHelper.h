// PropertyBagHelper: reads an option list, the OPTIONS/OPTION elements of a
// job document, a transform definition or appconfig.xml.
//
// The helper borrows the XMLWrapper it is initialised with; the wrapper must
// outlive it. It keeps the OPTIONS node when the document has exactly one
// under its root element, and otherwise queries from the document, so that
// lookups then fail with the document's own "could not be found" error.
//
// Option names go into the XPath queries unquoted, as they always have: a name
// holding an apostrophe is not found.
#pragma once

#include <libxml/tree.h>

#include <string>
#include <string_view>
#include <vector>

namespace tessel {

class XMLWrapper;

class PropertyBagHelper {
 public:
  PropertyBagHelper() = default;
  explicit PropertyBagHelper(XMLWrapper& wrapper) { Initialise(wrapper); }

  void Initialise(XMLWrapper& wrapper);

  // Always 0: the property exists and is not counted.
  long Count() const { return 0; }
  // Name of OPTION[id]; id must lie above 0 and below the number of child
  // nodes of OPTIONS, else 9521.
  std::string PropertyName(long id);
  // The value attribute of the option; 9520 for a list option, 7703 for an
  // unknown name, 7701 for an option without a value.
  std::string Property(std::string_view name);
  // The option's list attribute as a boolean; any failure gives false.
  bool PropertyIsList(std::string_view name);
  // The texts of VALUES/* for a list option, else the one value.
  std::vector<std::string> GetList(std::string_view name);
  // True when exactly one option has the name.
  bool HasProperty(std::string_view name);
  // Appends a new OPTION; errors are ignored.
  void SetProperty(std::string_view name, std::string_view value);

 private:
  std::string OptionPath(std::string_view name) const;

  XMLWrapper* wrapper_ = nullptr;
  xmlNodePtr optionsNode_ = nullptr;
};

}  // namespace tessel
