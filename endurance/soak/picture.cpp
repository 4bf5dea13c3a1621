#include "picture.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace Endurance {

namespace {

constexpr double WIDTH = 760;
constexpr double LEFT = 60;
constexpr double PLOT_WIDTH = WIDTH - LEFT - 20;
constexpr double PLOT_HEIGHT = 120;
constexpr double TOP = 60;
constexpr double PANEL_HEIGHT = 185;
constexpr size_t MOST_POINTS = 300;

constexpr char STYLE[] = R"(<style>
  text { font: 12px sans-serif; fill: #333 } .title { font-size: 14px; font-weight: bold }
  .grid { stroke: #ddd } .axis { stroke: #888 } polyline { fill: none; stroke-width: 1.5 }
  .a { stroke: #0b62b8 } .b { stroke: #c4510a } text.a { fill: #0b62b8; stroke: none } text.b { fill: #c4510a; stroke: none }
  .end { text-anchor: end } .middle { text-anchor: middle } .back { fill: #fff }
  @media (prefers-color-scheme: dark) {
    text { fill: #ddd } .grid { stroke: #3a3f46 } .axis { stroke: #999 } .back { fill: #14181d }
    .a { stroke: #6cb4ff } .b { stroke: #ff9d5c } text.a { fill: #6cb4ff } text.b { fill: #ff9d5c }
  }
</style>
)";

using Field = double ProcessSample::*;

struct Curve {
    std::string name;
    Field field;
    char color; // of the style sheet
};

struct Panel {
    std::string title;
    std::vector<Curve> curves;
};

// A step of 1, 2 or 5 and zeros that divides the range into at most that many.
double StepFor(double range, double most) {
    const double power = std::pow(10, std::floor(std::log10(std::max(range / most, 1e-9))));
    for (const double step : {power, 2 * power, 5 * power}) {
        if (range / step <= most) {
            return step;
        }
    }
    return 10 * power;
}

// As many points as the eye can tell apart: the mean of the samples in each.
std::vector<ProcessSample> Thin(const std::vector<ProcessSample>& samples) {
    const size_t size = (samples.size() + MOST_POINTS - 1) / MOST_POINTS;
    std::vector<ProcessSample> result;
    for (size_t from = 0; from + size <= samples.size(); from += size) {
        ProcessSample mean;
        for (const Field field :
             {&ProcessSample::seconds, &ProcessSample::memory, &ProcessSample::descriptors,
              &ProcessSample::threads, &ProcessSample::rate}) {
            for (size_t i = from; i < from + size; ++i) {
                mean.*field += samples[i].*field / static_cast<double>(size);
            }
        }
        result.push_back(mean);
    }
    return result;
}

class Drawing {
public:
    explicit Drawing(const std::vector<ProcessSample>& samples) :
        m_points(Thin(samples)), m_seconds(samples.back().seconds) {
        m_out.setf(std::ios::fixed);
        m_out.precision(1);
    }

    void Draw(const Panel& panel, double top) {
        double most = 1;
        for (const Curve& curve : panel.curves) {
            for (const ProcessSample& point : m_points) {
                most = std::max(most, point.*curve.field);
            }
        }
        const double step = StepFor(most, 4);
        most = step * std::ceil(most / step);
        m_bottom = top + PLOT_HEIGHT;
        m_scale = PLOT_HEIGHT / most;
        Text(LEFT, top - 12, "", panel.title);
        DrawAxes(step, most);
        double labelAt = WIDTH - 20;
        for (const Curve& curve : panel.curves) {
            DrawCurve(curve);
            if (panel.curves.size() > 1) {
                Text(labelAt, top - 12, std::string(1, curve.color) + " end", curve.name);
                labelAt -= 90;
            }
        }
    }

    void Text(double x, double y, const std::string& style, const std::string& text) {
        m_out << "<text class=\"" << style << "\" x=\"" << x << "\" y=\"" << y << "\">" << text
              << "</text>\n";
    }

    std::string Svg() const { return m_out.str(); }

private:
    double X(double seconds) const { return LEFT + PLOT_WIDTH * seconds / m_seconds; }

    static std::string Number(double value) {
        std::ostringstream text;
        text << value;
        return text.str();
    }

    void Line(const char* style, double x1, double y1, double x2, double y2) {
        m_out << "<line class=\"" << style << "\" x1=\"" << x1 << "\" y1=\"" << y1 << "\" x2=\"" << x2
              << "\" y2=\"" << y2 << "\"/>\n";
    }

    void DrawAxes(double step, double most) {
        for (int tick = 0; tick <= std::lround(most / step); ++tick) {
            const double y = m_bottom - tick * step * m_scale;
            Line(tick == 0 ? "axis" : "grid", LEFT, y, LEFT + PLOT_WIDTH, y);
            Text(LEFT - 8, y + 4, "end", Number(tick * step));
        }
        const double every = StepFor(m_seconds, 10);
        for (int tick = 0; tick * every <= m_seconds; ++tick) {
            const double x = X(tick * every);
            Line("axis", x, m_bottom, x, m_bottom + 4);
            Text(x, m_bottom + 18, "middle", Number(tick * every));
        }
    }

    void DrawCurve(const Curve& curve) {
        m_out << "<polyline class=\"" << curve.color << "\" points=\"";
        for (const ProcessSample& point : m_points) {
            m_out << X(point.seconds) << ',' << m_bottom - point.*curve.field * m_scale << ' ';
        }
        m_out << "\"/>\n";
    }

    const std::vector<ProcessSample> m_points;
    const double m_seconds;
    std::ostringstream m_out;
    double m_bottom = 0;
    double m_scale = 0;
};

} // namespace

std::string Picture(const std::string& title, const std::vector<ProcessSample>& samples) {
    const std::vector<Panel> panels{
        {"Resident memory, MiB", {{"", &ProcessSample::memory, 'a'}}},
        {"Threads and descriptors",
         {{"descriptors", &ProcessSample::descriptors, 'b'}, {"threads", &ProcessSample::threads, 'a'}}},
        {"Replies per second", {{"", &ProcessSample::rate, 'a'}}},
    };
    const double height = TOP + PANEL_HEIGHT * static_cast<double>(panels.size());
    Drawing drawing(samples);
    drawing.Text(LEFT, 24, "title", title);
    double top = TOP;
    for (const Panel& panel : panels) {
        drawing.Draw(panel, top);
        top += PANEL_HEIGHT;
    }
    drawing.Text(LEFT + PLOT_WIDTH / 2, height - 20, "middle", "seconds");
    std::ostringstream svg;
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << WIDTH << ' ' << height << "\">\n"
        << STYLE << "<rect class=\"back\" width=\"100%\" height=\"100%\"/>\n"
        << drawing.Svg() << "</svg>\n";
    return svg.str();
}

} // namespace Endurance
