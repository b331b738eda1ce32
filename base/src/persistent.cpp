// The persistence root and the registry of persisted classes' factories.
#include "mvbase/persistent.h"

#include <map>
#include <mutex>
#include <string>
#include <typeindex>

#include "mvbase/archive.h"
#include "persist_detail.h"

// --- mvPersistent ---

mvPersistent::~mvPersistent() = default;

void mvPersistent::dispatchSerialize(mvArchive& /*ar*/) {}

bool mvPersistent::haveVisited(void* object, std::size_t size) {
  const mvArchive* ar = mvbase_detail::currentArchive();
  return ar != nullptr && ar->haveVisited(object, size);
}

void mvPersistent::setVisited(void* object, std::size_t size) {
  mvArchive* ar = mvbase_detail::currentArchive();
  if (ar != nullptr) ar->setVisited(object, size);
}

// --- mv_Instantiator ---

namespace {

struct Registration {
  mv_Instantiator::Factory make;
  std::string name;
  const mv_Instantiator* owner;
};

// The registry lives in a function so that instantiators of any library may register
// during static initialisation, whatever the order of initialisation.
struct Registry {
  std::mutex mutex;
  std::map<std::type_index, Registration> byType;
  std::map<std::string, mv_Instantiator::Factory> byName;
};

Registry& registry() {
  static Registry r;
  return r;
}

void registerClass(const std::type_info& type, mv_Instantiator::Factory make,
                   const std::string& name, const mv_Instantiator* owner) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  r.byType[std::type_index(type)] = Registration{make, name, owner};
  r.byName[name] = make;
}

}  // namespace

mv_Instantiator::mv_Instantiator(const std::type_info& type, Factory make) : type_(&type) {
  registerClass(type, make, type.name(), this);
}

mv_Instantiator::mv_Instantiator(const std::type_info& type, Factory make, const char* name)
    : type_(&type) {
  registerClass(type, make, name != nullptr ? name : type.name(), this);
}

mv_Instantiator::~mv_Instantiator() {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  const auto it = r.byType.find(std::type_index(*type_));
  if (it == r.byType.end() || it->second.owner != this) return;
  const auto named = r.byName.find(it->second.name);
  if (named != r.byName.end() && named->second == it->second.make) r.byName.erase(named);
  r.byType.erase(it);
}

mvPersistent* mv_Instantiator::create(const std::string& name) {
  Factory make = nullptr;
  {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    const auto it = r.byName.find(name);
    if (it != r.byName.end()) make = it->second;
  }
  return make != nullptr ? make() : nullptr;
}

mvPersistent* mv_Instantiator::create(const std::type_info& type) {
  Factory make = nullptr;
  {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    const auto it = r.byType.find(std::type_index(type));
    if (it != r.byType.end()) make = it->second.make;
  }
  return make != nullptr ? make() : nullptr;
}

std::string mv_Instantiator::nameOf(const std::type_info& type) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  const auto it = r.byType.find(std::type_index(type));
  return it != r.byType.end() ? it->second.name : std::string();
}
