// SPDX-License-Identifier: MIT
#include "webbrowser.h"

namespace Varnel {

WebBrowser::~WebBrowser() = default;

PageWindow::~PageWindow() = default;

} // namespace Varnel
