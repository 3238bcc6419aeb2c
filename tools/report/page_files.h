#pragma once

#include <string_view>

// The files beside this one, as they were when the tool was built.
extern const std::string_view kPageHtml;
extern const std::string_view kPageCss;
extern const std::string_view kSharedJs;
extern const std::string_view kPicturesJs;
extern const std::string_view kStageJs;
extern const std::string_view kPageJs;
extern const std::string_view kLiveJs;
extern const std::string_view kOverviewHtml;
extern const std::string_view kOverviewJs;
