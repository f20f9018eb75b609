// text_sink.hpp - the target of header text: the composition file, lines to be sent, or the
// caller's memory. A text that ends in LF ends its line.
#pragma once

#include <string_view>
#include <type_traits>

namespace ovrmail::mime {

class TextSink {
public:
    // The target has bool put(std::string_view) and outlives the sink.
    template <class Target>
    requires(!std::is_same_v<Target, TextSink>) explicit TextSink(Target& target) noexcept
        : target_(&target), put_([](void* to, std::string_view text) noexcept {
              return static_cast<Target*>(to)->put(text);
          }) {}

    bool put(std::string_view text) noexcept { return put_(target_, text); }

private:
    void* target_;
    bool (*put_)(void*, std::string_view) noexcept;
};

}  // namespace ovrmail::mime
