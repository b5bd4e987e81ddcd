#pragma once

#include "gateway/CActs.h"
#include "web/CRoutes.h"

namespace ZELPC {

class CGateway;

/// The gateway for programs: what docs/gateway.md describes under "API", the metrics and the sign of life.
class CApi {
public:
    explicit CApi(CGateway& gateway) : gateway_(gateway), acts_(gateway) {}

    void AddTo(CRoutes& routes) const;

    /// Reads what a search is restricted to; throws std::runtime_error when a value is not what it should be.
    static ResultFilter FilterOf(const WebRequest& request);

private:
    void AddReading(CRoutes& routes) const;
    void AddActs(CRoutes& routes) const;
    WebResponse Status() const;
    WebResponse Analyzers() const;
    WebResponse Analyzer(const WebRequest& request) const;
    WebResponse Results(const WebRequest& request) const;
    WebResponse Result(const WebRequest& request) const;
    WebResponse Queues() const;
    WebResponse Queue(const WebRequest& request) const;
    WebResponse Aside() const;

    CGateway& gateway_;
    CActs acts_;
};

}  // namespace ZELPC
