// SPDX-License-Identifier: MIT
#include "enginecaches.h"

#include <QPixmapCache>
#include <QWebSettings>

namespace Varnel {

namespace {

// Of pictures, styles and scripts that no page shows any more the engine keeps so much, in octets: a page
// that asks for a new picture every second, under a new name each time, would otherwise fill megabytes that
// are never looked at again.
constexpr int mostUnused = 1 << 20;
// Above so much in all it also forgets what it has unpacked of pictures that are out of sight.
constexpr int mostInAll = 4 << 20;
// Of icons that the toolkit has drawn, in KiB. Each dialog draws its buttons' anew, and those of the last one
// stay.
constexpr int mostIcons = 512;

} // namespace

void limitEngineCaches()
{
    // Nothing but a page's own script leads back to an earlier page, which can be loaded anew.
    QWebSettings::setMaximumPagesInCache(0);
    QWebSettings::setObjectCacheCapacities(0, mostUnused, mostInAll);
    QPixmapCache::setCacheLimit(mostIcons);
}

void clearEngineCaches()
{
    QWebSettings::clearMemoryCaches();
    QPixmapCache::clear();
}

} // namespace Varnel
