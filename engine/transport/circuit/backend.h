// A circuit as what carries a transport's messages.
#pragma once

#include "transport/circuit/end.h"
#include "transport/transport.h"

namespace quorl::transport::circuit {

class CircuitBackend final : public Backend {
  public:
    explicit CircuitBackend(EndRef end) noexcept : end_(std::move(end)) {}

    End& end() const noexcept { return *end_; }

    quorl_status check(std::string_view subject) const noexcept override;
    quorl_status send(ThreadState& thread, message::ContentRef content) noexcept override;
    quorl_status deliver(ThreadState& thread, message::ContentRef content) noexcept override;
    quorl_status listen(Listener& listener) noexcept override;
    void unlisten(Listener& listener) noexcept override;
    quorl_status openRequest(Request& request) noexcept override;
    void closeRequest(Request& request) noexcept override;
    void observe(ObserverRef observer) override { end_->observers().add(std::move(observer)); }
    void unobserve(const Observer& observer) noexcept override { end_->observers().remove(observer); }
    Passage passage(std::string_view inbox, int64_t now) noexcept override;
    void closed(ThreadState& thread) noexcept override;
    quorl_status whyAborted() const noexcept override;

  private:
    const EndRef end_;
};

}  // namespace quorl::transport::circuit
