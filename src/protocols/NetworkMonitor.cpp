#include "protocols/NetworkMonitor.h"

#include <boost/asio/post.hpp>

namespace velmo {

NetworkMonitor::NetworkMonitor(Executor main, Clock& clock, NetworkPath& path)
    : clock_(clock), self_(std::make_shared<NetworkMonitor*>(this)) {
    path.start([main, weak = std::weak_ptr(self_)](bool isSatisfied) {
        boost::asio::post(main, [weak, isSatisfied] {
            if (const auto self = weak.lock()) (*self)->update(isSatisfied);
        });
    });
}

void NetworkMonitor::update(bool isSatisfied) {
    if (isSatisfied == *isOnline) return;
    if (isSatisfied) cameBackAt = clock_.now();
    isOnline = isSatisfied;
}

}
