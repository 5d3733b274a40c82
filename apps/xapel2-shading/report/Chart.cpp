// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Charts as SVG: lines over axes with ticks and units.

#include "report/Chart.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "report/Html.h"

namespace XAPEL2 {
namespace App {

namespace {

// In units of the view box. It is small, so that its texts can be read where a narrow screen scales it down.
constexpr double WIDTH = 360.0, HEIGHT = 240.0;
constexpr double RIGHT = 350.0, TOP = 8.0, BOTTOM = 188.0;
constexpr double TITLE = 20.0;     // the upright title of the left axis
constexpr double LABEL_GAP = 6.0;  // from a label to what stands beside it
constexpr double DIGIT = 7.6;      // width of a digit, in the widest of the fonts that the page may get
constexpr unsigned X_TICKS = 5, Y_TICKS = 5;
constexpr double X_FILLED = 0.8;  // of the lower axis, by its labels at most

struct Range {
    double dLow = std::numeric_limits<double>::infinity();
    double dHigh = -std::numeric_limits<double>::infinity();

    void add(double dValue) {
        dLow = std::min(dLow, dValue);
        dHigh = std::max(dHigh, dValue);
    }
    double share(double dValue) const { return (dValue - dLow) / (dHigh - dLow); }
};

class CChart {
public:
    explicit CChart(const Chart& rChart) : m_rChart(rChart) {
        for (const ChartLine& rLine : rChart.vecLines) {
            std::for_each(rLine.vecX.begin(), rLine.vecX.end(), [&](double d) { m_x.add(d); });
            std::for_each(rLine.vecY.begin(), rLine.vecY.end(), [&](double d) { m_y.add(level(d)); });
        }
        if (rChart.bCounts) {
            m_y = {0.0, std::max(1.0, std::ceil(m_y.dHigh))};
        } else {
            const double dMargin = std::max(0.05 * (m_y.dHigh - m_y.dLow), 1e-3);
            m_y = {m_y.dLow - dMargin, m_y.dHigh + dMargin};
        }
        prepareYTicks();
    }

    std::string svg() const {
        std::string strSvg = "<svg viewBox=\"0 0 " + at(WIDTH) + ' ' + at(HEIGHT) + "\" role=\"img\" aria-label=\"" +
                             escaped(m_rChart.strTitle) + "\">";
        strSvg += yAxis() + xAxis();
        for (const ChartLine& rLine : m_rChart.vecLines) {
            strSvg += "<path class=\"line " + escaped(rLine.strClass) + "\" d=\"" +
                      (m_rChart.bCounts ? steps(rLine) : polyline(rLine)) + "\"/>";
        }
        return strSvg + "</svg>";
    }

private:
    static std::string at(double dPlace) { return rounded(dPlace, 1); }

    // What the height over the foot stands for: of counts the logarithm, 1 a little above the foot.
    double level(double dValue) const {
        return m_rChart.bCounts ? (dValue > 0.0 ? std::log10(dValue) + 0.3 : 0.0) : dValue;
    }
    double x(double dValue) const { return m_dLeft + (RIGHT - m_dLeft) * m_x.share(dValue); }
    double y(double dValue) const { return BOTTOM - (BOTTOM - TOP) * m_y.share(level(dValue)); }

    std::string polyline(const ChartLine& rLine) const {
        std::string strPath;
        for (std::size_t i = 0; i < rLine.vecX.size(); ++i) {
            strPath += (i == 0 ? 'M' : 'L') + at(x(rLine.vecX[i])) + ' ' + at(y(rLine.vecY[i]));
        }
        return strPath;
    }

    std::string steps(const ChartLine& rLine) const {
        std::string strPath = 'M' + at(x(rLine.vecX[0])) + ' ' + at(BOTTOM);
        for (std::size_t i = 0; i + 1 < rLine.vecX.size(); ++i) {
            strPath += 'V' + at(y(rLine.vecY[i])) + 'H' + at(x(rLine.vecX[i + 1]));
        }
        return strPath + 'V' + at(BOTTOM);
    }

    // A power of ten: 1, 10, 100, 1 k, ...
    static std::string countText(double dCount) {
        return dCount < 1e3   ? rounded(dCount, 0)
               : dCount < 1e6 ? rounded(dCount / 1e3, 0) + " k"
                              : rounded(dCount / 1e6, 0) + " M";
    }

    static std::string text(double dX, double dY, const char* pAnchor, const std::string& strText) {
        return "<text x=\"" + at(dX) + "\" y=\"" + at(dY) + "\" text-anchor=\"" + pAnchor + "\">" + escaped(strText) +
               "</text>";
    }

    static double width(const std::string& strText) { return DIGIT * static_cast<double>(strText.size()); }

    // Labels of the left axis, and room for the longest of them beside the title.
    void prepareYTicks() {
        m_vecYTicks = niceTicks(m_y.dLow, m_y.dHigh, Y_TICKS);
        if (m_rChart.bCounts) {
            m_vecYTicks.clear();
            for (double dCount = 1.0; level(dCount) <= m_y.dHigh; dCount *= 10.0) {
                m_vecYTicks.push_back(dCount);
            }
        }
        double dWidest = 0.0;
        for (const double dTick : m_vecYTicks) {
            dWidest = std::max(dWidest, width(yLabel(dTick)));
        }
        m_dLeft = TITLE + dWidest + 2.0 * LABEL_GAP;
    }

    std::string yLabel(double dTick) const {
        return m_rChart.bCounts ? countText(dTick) : rounded(dTick, tickDigits(m_vecYTicks));
    }

    // As many as stand clear of each other.
    std::vector<double> xTicks() const {
        unsigned nAbout = X_TICKS;
        std::vector<double> vecTicks = niceTicks(m_x.dLow, m_x.dHigh, nAbout);
        const auto fnRoom = [&] {
            return width(rounded(vecTicks.back(), tickDigits(vecTicks))) * static_cast<double>(vecTicks.size());
        };
        while (nAbout > 1 && fnRoom() > X_FILLED * (RIGHT - m_dLeft)) {
            const std::vector<double> vecFewer = niceTicks(m_x.dLow, m_x.dHigh, --nAbout);
            vecTicks = vecFewer.empty() ? vecTicks : vecFewer;
        }
        return vecTicks;
    }

    std::string xAxis() const {
        std::string strAxis;
        const std::vector<double> vecTicks = xTicks();
        for (const double dTick : vecTicks) {
            const std::string strLabel = rounded(dTick, tickDigits(vecTicks));
            const double dPlace = std::min(x(dTick), WIDTH - width(strLabel) / 2.0);
            strAxis += "<path class=\"axis\" d=\"M" + at(x(dTick)) + ' ' + at(BOTTOM) + "v5\"/>" +
                       text(dPlace, BOTTOM + 20.0, "middle", strLabel);
        }
        return strAxis + "<path class=\"axis\" d=\"M" + at(m_dLeft) + ' ' + at(BOTTOM) + 'H' + at(RIGHT) + "\"/>" +
               text((m_dLeft + RIGHT) / 2.0, HEIGHT - 8.0, "middle", m_rChart.strXLabel);
    }

    std::string yAxis() const {
        std::string strAxis;
        for (const double dTick : m_vecYTicks) {
            strAxis += "<path class=\"grid\" d=\"M" + at(m_dLeft) + ' ' + at(y(dTick)) + 'H' + at(RIGHT) + "\"/>" +
                       text(m_dLeft - LABEL_GAP, y(dTick) + 4.5, "end", yLabel(dTick));
        }
        const std::string strMiddle = at((TOP + BOTTOM) / 2.0);
        return strAxis + "<text transform=\"translate(13 " + strMiddle + ") rotate(-90)\" text-anchor=\"middle\">" +
               escaped(m_rChart.strYLabel) + "</text>";
    }

    const Chart& m_rChart;
    Range m_x, m_y;
    std::vector<double> m_vecYTicks;
    double m_dLeft = 0.0;
};

}  // namespace

std::vector<double> niceTicks(double dLow, double dHigh, unsigned nAbout) {
    const double dRough = (dHigh - dLow) / nAbout;
    if (!(dRough > 0.0) || !std::isfinite(dRough)) {
        return {dLow};
    }
    const double dPower = std::pow(10.0, std::floor(std::log10(dRough)));
    const double dRest = dRough / dPower;
    const double dStep = dPower * (dRest <= 1.5 ? 1.0 : dRest <= 3.5 ? 2.0 : dRest <= 7.5 ? 5.0 : 10.0);
    std::vector<double> vecTicks;
    for (double dIndex = std::ceil(dLow / dStep - 1e-9); dIndex * dStep <= dHigh + 1e-9 * dStep; dIndex += 1.0) {
        vecTicks.push_back(dIndex * dStep + 0.0);  // no negative zero
    }
    return vecTicks;
}

int tickDigits(const std::vector<double>& vecTicks) {
    if (vecTicks.size() < 2) {
        return 0;
    }
    return std::max(0, static_cast<int>(std::ceil(-std::log10(vecTicks[1] - vecTicks[0]) - 1e-9)));
}

std::string chartHtml(const Chart& rChart) {
    std::string strHtml = "<figure class=\"chart\"><h3>" + escaped(rChart.strTitle) + "</h3>" + CChart(rChart).svg() +
                          "<figcaption class=\"legend\">";
    for (const ChartLine& rLine : rChart.vecLines) {
        strHtml += "<span><svg viewBox=\"0 0 28 8\" aria-hidden=\"true\"><path class=\"line " +
                   escaped(rLine.strClass) + "\" d=\"M0 4H28\"/></svg>" + escaped(rLine.strName) + "</span>";
    }
    return strHtml + "</figcaption></figure>";
}

}  // namespace App
}  // namespace XAPEL2
