// TransformTypeTable: the table from transform type numbers to the classes
// that carry them out.
//
// Standard() holds every type the engine knows. Types that are named but not
// built in this engine (6, 7, 9, 10, and those whose class is still to come)
// raise 10503 when a transform of theirs is created; numbers outside the table
// make no controller at all, which the coordinator reports as 10505. Tests and
// hosts may register classes of their own on a copy of the table.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace tessel {

class ITransformController;

class TransformTypeTable {
 public:
  using Maker = std::function<std::shared_ptr<ITransformController>()>;

  // The engine's own table.
  static TransformTypeTable Standard();

  // Registers (or replaces) the class of a type number.
  void Register(int type, std::string className, Maker maker);
  // Marks a type as known but not built: creating it raises 10503.
  void RegisterNotBuilt(int type, std::string className);

  // A new controller; nullptr when the number is not in the table.
  std::shared_ptr<ITransformController> Create(int type, const std::string& transformId) const;
  bool Knows(int type) const { return entries_.count(type) != 0; }
  std::string ClassName(int type) const;

 private:
  struct Entry {
    std::string className;
    Maker maker;  // empty for a type that is not built
  };
  std::map<int, Entry> entries_;
};

}  // namespace tessel
