#pragma once

#include <string>

#include "gateway/CActs.h"
#include "gateway/CAnalyzer.h"
#include "web/CAccess.h"
#include "web/CRoutes.h"

namespace ZELPC {

class CGateway;

/// The gateway for people.
class CPages {
public:
    /// `guard` is what the forms of these pages hold, see CAccess.
    CPages(CGateway& gateway, std::string guard, bool canAct)
        : gateway_(gateway), acts_(gateway), guard_(std::move(guard)), canAct_(canAct) {}

    void AddTo(CRoutes& routes) const;

private:
    WebResponse Overview(const WebRequest& request) const;
    WebResponse Results(const WebRequest& request) const;
    WebResponse Result(const WebRequest& request) const;
    WebResponse Queues(const WebRequest& request) const;
    WebResponse Queue(const WebRequest& request) const;
    WebResponse Aside(const WebRequest& request) const;
    void AddActs(CRoutes& routes) const;

    std::string AnalyzersTable() const;
    std::string UpdateCell(const AnalyzerView& analyzer) const;
    std::string QueuesTable() const;
    std::string DeliveriesTable(const std::vector<Delivery>& deliveries, const char* nothing) const;
    std::string StateOf(const QueueCount& queue) const;
    WebResponse Page(const WebRequest& request, const std::string& title, const std::string& main) const;

    CGateway& gateway_;
    const CActs acts_;
    const std::string guard_;
    const bool canAct_;
};

}  // namespace ZELPC
