// For targets without a libcurl.
#include "platform/http.h"

namespace vex {

class GHttpClient::GTransfer {};

GHttpClient::GHttpClient() = default;
GHttpClient::~GHttpClient() = default;

GHttpResult GHttpClient::Get(const std::string&, const std::string&, GHttpSink&)
{
    return {GHttpResult::Outcome::NotBuilt, 0, "built without HTTP"};
}

void GHttpClient::Abort() {}

}  // namespace vex
