#include "tools/compare/difference_json.h"

nlohmann::ordered_json ToJson(const PictureDifference& difference) {
    using Json = nlohmann::ordered_json;
    Json planes = Json::array();
    for (const PlaneDifference& plane : difference.planes) {
        planes.push_back({{"plane", plane.plane},
                          {"samples", plane.samples},
                          {"differing", plane.differing},
                          {"largest", plane.largest},
                          {"psnr", plane.psnr ? Json(*plane.psnr) : Json(nullptr)}});
    }
    Json first = nullptr;
    if (difference.first) {
        first = {{"x", difference.first->x},
                 {"y", difference.first->y},
                 {"plane", difference.first->plane},
                 {"values", {difference.first->a, difference.first->b}}};
    }
    return {{"identical", difference.identical()}, {"first", first}, {"planes", planes}};
}
