// SPDX-License-Identifier: MIT
#include "enginecaches.h"

#include <QPixmapCache>
#include <QWebSettings>

namespace Varnel {

namespace {

// Limit, in bytes, for cached resources that no page uses. A page that loads a new picture every second, each
// under another name, would fill the default limit.
constexpr int unusedLimit = 1 << 20;
// Limit, in bytes, for all cached resources. Above it the engine also drops decoded pictures that are not
// visible.
constexpr int totalLimit = 4 << 20;
// Limit, in KiB, for icons that the toolkit has drawn. Each dialog adds those of its buttons.
constexpr int iconLimit = 512;

} // namespace

void limitEngineCaches()
{
    // Only a page's script can go back to an earlier page, and that page can be loaded again.
    QWebSettings::setMaximumPagesInCache(0);
    QWebSettings::setObjectCacheCapacities(0, unusedLimit, totalLimit);
    QPixmapCache::setCacheLimit(iconLimit);
}

void clearEngineCaches()
{
    QWebSettings::clearMemoryCaches();
    QPixmapCache::clear();
}

} // namespace Varnel
