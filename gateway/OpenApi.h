#pragma once
// zanthd's OpenAPI 3 document: one path per export that /call takes, generated from the API
// model (its request schema from the parameters and their bounds, its answer from the outputs),
// and the resources, written by hand beside them. Served as /api/v1/openapi.json, with a page
// that renders it (/api/v1/docs) without anything fetched from elsewhere.

#include <nlohmann/json.hpp>
#include <string>

namespace zanthd {

nlohmann::json OpenApiDocument(const std::string& site, const std::string& libraryVersion);
const std::string& OpenApiPage();

}  // namespace zanthd
