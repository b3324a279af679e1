// The timeline of a recording folder as one self-contained HTML page: no
// network, no external script, style or font. One lane per camera along a
// time axis, recordings as bars coloured by state, gaps marked with their
// cause, zoom from a week to a minute, a recording's details and first
// picture on click, and the `dravix export` command for a selected range.
//
// Only the bars and gaps that meet the visible range are put in the page's
// DOM, and at wide zoom the bars narrower than a pixel that touch are
// drawn as one, so a folder of many thousand recordings stays responsive.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace dravix::cli {

// `model` is the timeline's JSON ("files" and "gaps" with "start_ms" and
// "end_ms", "cameras", "folder") with "thumbs": file index -> data: URL.
std::string TimelinePageHtml(const nlohmann::json& model);

}  // namespace dravix::cli
