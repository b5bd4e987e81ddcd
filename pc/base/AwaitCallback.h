#pragma once

#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <memory>
#include <utility>

namespace ZELPC {

namespace asio = boost::asio;

/// Lets a coroutine wait for a call that answers through a callback: `start` gets the callback, which takes one value
/// and is called once, on whatever thread. The coroutine goes on where it ran.
template <class Value, class Start>
asio::awaitable<Value> AwaitCallback(Start start) {
    return asio::async_initiate<const asio::use_awaitable_t<>&, void(Value)>(
        [](auto handler, Start begin) {
            using Handler = decltype(handler);
            struct State {
                Handler handler;
                asio::executor_work_guard<asio::associated_executor_t<Handler>> work;
            };
            auto executor = asio::get_associated_executor(handler);
            auto state = std::make_shared<State>(State{std::move(handler), asio::make_work_guard(executor)});
            begin([state, executor](Value value) {
                asio::post(executor, [state, value = std::move(value)]() mutable {
                    std::move(state->handler)(std::move(value));
                });
            });
        },
        asio::use_awaitable, std::move(start));
}

}  // namespace ZELPC
