// The page of --report, but for what it tells of: files of report/, which the build puts into the tool.
#pragma once

#include <string_view>

extern const std::string_view kReportPage;
extern const std::string_view kReportStyle;
extern const std::string_view kReportScript;
extern const std::string_view kPlotStyle;
extern const std::string_view kPlotScript;
extern const std::string_view kPlotLicense;
