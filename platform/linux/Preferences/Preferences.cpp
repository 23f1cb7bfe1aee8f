#include <pthread.h>

#include <map>
#include <mutex>
#include <string>

#include "platform/CoreFoundation.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/Preferences/PreferenceFile.h"

namespace {

constinit const __CFString kCurrentUserText{u"kCFPreferencesCurrentUser"};
constinit const __CFString kCurrentHostText{u"kCFPreferencesCurrentHost"};

using platform::PlistNode;

/// One application's settings: what the file held when it was last read, and the changes made here since. A null change removes the key.
struct Domain {
    bool isRead = false;
    PlistNode stored;
    std::map<std::string, PlistNode> pending;
};

struct Domains {
    std::mutex lock;
    std::map<std::string, Domain> byApplication;
};

/// Never destroyed: other threads may still ask while the process ends.
Domains& TheDomains() {
    static Domains* const domains = new Domains;
    return *domains;
}

void LockDomains() {
    TheDomains().lock.lock();
}

void UnlockDomains() {
    TheDomains().lock.unlock();
}

/// A child of fork finds the settings whole and the lock free, and no file locked in its name.
[[maybe_unused]] const int sFollowsForks = pthread_atfork(LockDomains, UnlockDomains, UnlockDomains);

/// The property list's keys end at a NUL: one inside would name another key.
bool IsKey(const std::string& name) {
    return name.find('\0') == std::string::npos;
}

/// Only the current user on the current host is kept here.
bool IsOwnDomain(CFStringRef user, CFStringRef host) {
    return user && host && CFEqual(user, kCFPreferencesCurrentUser) && CFEqual(host, kCFPreferencesCurrentHost);
}

void ReadOnce(Domain* domain, const std::string& application) {
    if (domain->isRead) return;
    platform::ReadPreferenceFile(platform::FindPreferencePlace(application), &domain->stored);
    domain->isRead = true;
}

void Apply(const std::map<std::string, PlistNode>& changes, plist_t root) {
    for (const auto& [key, value] : changes) {
        if (value) {
            plist_dict_set_item(root, key.c_str(), plist_copy(value.get()));
        } else if (plist_dict_get_item(root, key.c_str())) {
            plist_dict_remove_item(root, key.c_str());
        }
    }
}

/// Merges the pending changes into what the file holds now. On failure they stay pending.
bool Write(Domain* domain, const platform::PreferencePlace& place) {
    if (!platform::MakePreferenceFolder(place)) return false;
    const platform::PreferenceLock lock(place);
    if (!lock) return false;
    PlistNode root;
    std::string damage;
    const platform::PreferenceFileState state = platform::ReadPreferenceFile(place, &root, &damage);
    if (state == platform::PreferenceFileState::kFailed) return false;
    if (state == platform::PreferenceFileState::kDamaged && !platform::SetPreferenceFileAside(place, damage)) return false;
    Apply(domain->pending, root.get());
    if (!platform::WritePreferenceFile(place, root.get())) return false;
    domain->pending.clear();
    domain->stored = std::move(root);
    domain->isRead = true;
    return true;
}

}  // namespace

extern "C" const CFStringRef kCFPreferencesCurrentUser = &kCurrentUserText;
extern "C" const CFStringRef kCFPreferencesCurrentHost = &kCurrentHostText;

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef application, CFStringRef user, CFStringRef host) {
    return platform::NullIfRaised([&]() -> CFPropertyListRef {
        const std::optional<std::string> name = platform::UTF8FromString(key);
        const std::optional<std::string> owner = platform::UTF8FromString(application);
        if (!name || !IsKey(*name) || !owner || !IsOwnDomain(user, host)) return nullptr;
        Domains& domains = TheDomains();
        const std::lock_guard<std::mutex> guard(domains.lock);
        Domain& domain = domains.byApplication[*owner];
        if (const auto change = domain.pending.find(*name); change != domain.pending.end()) {
            return change->second ? platform::CreateObjectFromPlist(change->second.get()) : nullptr;
        }
        ReadOnce(&domain, *owner);
        const plist_t node = plist_dict_get_item(domain.stored.get(), name->c_str());
        return node ? platform::CreateObjectFromPlist(node) : nullptr;
    });
}

void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef application, CFStringRef user, CFStringRef host) {
    platform::NullIfRaised([&] {
        const std::optional<std::string> name = platform::UTF8FromString(key);
        const std::optional<std::string> owner = platform::UTF8FromString(application);
        if (!name || !IsKey(*name) || !owner || !IsOwnDomain(user, host)) return false;
        PlistNode node = platform::PlistFromObject(value);
        if (value && !node) return false;
        Domains& domains = TheDomains();
        const std::lock_guard<std::mutex> guard(domains.lock);
        domains.byApplication[*owner].pending[*name] = std::move(node);
        return true;
    });
}

Boolean CFPreferencesSynchronize(CFStringRef application, CFStringRef user, CFStringRef host) {
    return platform::NullIfRaised([&]() -> Boolean {
        const std::optional<std::string> owner = platform::UTF8FromString(application);
        if (!owner || !IsOwnDomain(user, host)) return false;
        const platform::PreferencePlace place = platform::FindPreferencePlace(*owner);
        if (!place.IsValid()) return false;
        Domains& domains = TheDomains();
        const std::lock_guard<std::mutex> guard(domains.lock);
        Domain& domain = domains.byApplication[*owner];
        if (!domain.pending.empty()) return Write(&domain, place);
        PlistNode root;
        const platform::PreferenceFileState state = platform::ReadPreferenceFile(place, &root);
        if (state == platform::PreferenceFileState::kFailed) return false;
        domain.stored = std::move(root);
        domain.isRead = true;
        return state != platform::PreferenceFileState::kDamaged;
    });
}
