// SPDX-License-Identifier: Apache-2.0

#include "testing/RecordingResources.h"

namespace testing_support {

Pell::Ptr<ResourceTable::ResourceHandle const> RecordingResourceClient::request(
    const ResourceTable::Key& key, const ResourceTable::Dependency& dependency) {
  requests.push_back(key);
  requestDependencies.push_back(dependency);
  if (onCall) {
    onCall("request", key, std::nullopt, dependency);
  }
  if (answersNull) {
    return nullptr;
  }
  return handleOf(key);
}

void RecordingResourceClient::ackUpdate(
    const Pell::Ptr<ResourceTable::ResourceHandle const>& handle, std::uint32_t updateNumber,
    const ResourceTable::Dependency& dependency) {
  acks.push_back({handle->key(), updateNumber, dependency});
  if (onCall) {
    onCall("ackUpdate", handle->key(), updateNumber, dependency);
  }
}

void RecordingResourceClient::release(const Pell::Ptr<ResourceTable::ResourceHandle const>& handle,
                                      const ResourceTable::Dependency& dependency) {
  releases.push_back({handle->key(), dependency});
  if (onCall) {
    onCall("release", handle->key(), std::nullopt, dependency);
  }
}

Pell::Ptr<ScriptedResourceHandle> RecordingResourceClient::handle(const Pell::String& intfName) {
  return handleOf(ResourceTable::Key(Wirex::IntfId::fromName(intfName)));
}

Pell::Ptr<ScriptedResourceHandle> RecordingResourceClient::handleOf(const ResourceTable::Key& key) {
  Pell::Ptr<ScriptedResourceHandle>& held = handles_[key.intfId().value()];
  if (!held) {
    held = Zev::makeObject<ScriptedResourceHandle>(key);
  }
  return held;
}

}  // namespace testing_support
