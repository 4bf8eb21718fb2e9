#pragma once
// What a finished request means for the caller: one of ObjectClientError and a readable message such as
// "PUT http://127.0.0.1:9000/pool/a.wav: 403 SignatureDoesNotMatch: The request signature we calculated...".

#include <string>

#include "framework/media/objectclient/ObjectClient.h"
#include "framework/media/objectclient/SignedRequest.h"

namespace CloudStorage {

/// Reads <Code> and <Message> of an S3 error document; false when `xml` has no <Code>.
bool ParseStoreError(const std::string& xml, std::string& code, std::string& message);

/// kObjectOk for a 2xx answer; otherwise the error and `message` ("<method> <url>: <what happened>").
ObjectClientError ClassifyOutcome(const SRequestOutcome& outcome, const std::string& method,
                                  const std::string& url, std::string& message);

}  // namespace CloudStorage
