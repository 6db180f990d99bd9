#pragma once

#include <common/searchsettings.h>

namespace JwMonitor {

using FindSettings = JwTools::SearchSettings;

} // namespace JwMonitor
