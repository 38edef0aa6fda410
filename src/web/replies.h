#pragma once
// The answers every route gives: JSON that is never cached, and errors as {"error": text}.

#include <httplib.h>

#include <nlohmann/json.hpp>
#include <string>

namespace vorel::web {

inline void SendJson(httplib::Response& res, const nlohmann::json& body, int status = 200) {
  res.status = status;
  res.set_header("Cache-Control", "no-store");
  res.set_content(body.dump(), "application/json");
}

inline void SendError(httplib::Response& res, int status, const std::string& message) {
  SendJson(res, {{"error", message}}, status);
}

}  // namespace vorel::web
