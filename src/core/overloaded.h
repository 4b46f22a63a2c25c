#pragma once

namespace sorv {

// One visitor made of several lambdas, for std::visit:
//   std::visit(Overloaded{[](const A&) {…}, [](const B&) {…}}, variant);
template <class... Ts> struct Overloaded : Ts... {
    using Ts::operator()...;
};
template <class... Ts> Overloaded(Ts...) -> Overloaded<Ts...>;

} // namespace sorv
