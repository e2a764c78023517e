// A C++ program on the standard library: containers, strings, templates, namespaces, classes with
// inheritance and virtual functions, lambdas and inlined calls.
#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace geometry {
namespace detail {
template <typename T> T Square(T V) { return V * V; }
} // namespace detail

class Shape {
public:
    explicit Shape(std::string Name) : m_Name(std::move(Name)) {}
    virtual ~Shape() = default;
    virtual double Area() const = 0;
    const std::string& Name() const { return m_Name; }
    static int Count;

protected:
    std::string m_Name;
};
int Shape::Count = 0;

class Circle : public Shape {
public:
    explicit Circle(double R) : Shape("circle"), m_R(R) { ++Count; }
    double Area() const override { return 3.14159 * detail::Square(m_R); }

private:
    double m_R;
};

template <typename T, int N> struct Buffer {
    T Items[N];
    int Used = 0;
    void Push(const T& V) {
        if (Used < N) {
            Items[Used++] = V;
        }
    }
};
} // namespace geometry

geometry::Buffer<int, 16> g_Buffer;

int main() {
    std::vector<std::unique_ptr<geometry::Shape>> Shapes;
    for (int i = 1; i < 5; ++i) {
        Shapes.push_back(std::make_unique<geometry::Circle>(i));
    }
    std::map<std::string, double> Areas;
    for (const auto& S : Shapes) {
        Areas[S->Name() + std::to_string(Areas.size())] = S->Area();
    }
    std::vector<int> Values(10);
    std::iota(Values.begin(), Values.end(), 1);
    std::sort(Values.begin(), Values.end(), [](int A, int B) { return A > B; });
    for (int V : Values) {
        g_Buffer.Push(V);
    }
    return static_cast<int>(Areas.size()) + g_Buffer.Used + geometry::Shape::Count;
}
