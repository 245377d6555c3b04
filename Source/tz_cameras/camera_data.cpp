// SPDX-License-Identifier: Apache-2.0
// The supported models: their colour-correction matrices by block, and the camera table. Data only: replacing it needs
// no change of code.
//
// An entry is {matrix id, {nine coefficients, 4096 = 1.0}}; each row of three sums to 1.0 within rounding, so
// that grey stays grey. Ids: 1 daylight, 2 incandescent, 3 fluorescent, 4 flash, 5 weak correction.
#include <iterator>

#include "camera_table.h"
#include "model_data.h"

namespace {

constexpr auto kBlock00 = model_data({
    {1, {7142, -2549, -499, -1143, 6668, -1432, -258, -2685, 7037}},
    {2, {7074, -2216, -765, -1470, 6911, -1342, -386, -3337, 7819}},
    {5, {5957, -1536, -325, -776, 5742, -869, -149, -1508, 5752}},
});
constexpr auto kBlock01 = model_data({
    {1, {5545, -1209, -240, -689, 5526, -738, -116, -1284, 5495}},
    {2, {6390, -1763, -532, -940, 5932, -893, -271, -2164, 6531}},
    {4, {5788, -1503, -191, -793, 5681, -792, -81, -1326, 5500}},
    {5, {5246, -925, -222, -468, 5002, -435, -82, -912, 5088}},
});
constexpr auto kBlock02 = model_data({
    {1, {7294, -2790, -408, -1069, 6663, -1498, -251, -2627, 6975}},
    {2, {7792, -2843, -857, -1927, 7334, -1310, -408, -3223, 7730}},
    {3, {7506, -2875, -535, -1561, 7378, -1721, -320, -3475, 7890}},
    {5, {5785, -1374, -319, -728, 5825, -999, -180, -1984, 6258}},
});
constexpr auto kBlock03 = model_data({
    {1, {5981, -1585, -301, -861, 5907, -950, -152, -1940, 6186}},
    {2, {6915, -2170, -653, -1213, 6530, -1221, -323, -3255, 7674}},
    {3, {6322, -1733, -495, -1192, 6196, -908, -209, -2323, 6628}},
    {4, {6229, -1812, -320, -1013, 6049, -939, -121, -2152, 6371}},
    {5, {5315, -954, -262, -720, 5502, -688, -112, -1359, 5564}},
});
constexpr auto kBlock04 = model_data({
    {1, {5950, -1620, -235, -753, 5613, -761, -111, -1699, 5906}},
    {2, {6155, -1471, -590, -1174, 5996, -724, -272, -2198, 6567}},
    {5, {5022, -717, -209, -425, 4942, -420, -108, -939, 5142}},
});
constexpr auto kBlock05 = model_data({
    {1, {6519, -1960, -463, -898, 6015, -1022, -200, -2104, 6396}},
    {2, {6793, -2006, -689, -1323, 6519, -1098, -352, -3662, 8110}},
    {3, {7017, -2344, -577, -1257, 6636, -1283, -272, -2922, 7291}},
    {4, {6390, -1938, -355, -1087, 6568, -1384, -134, -2387, 6617}},
    {5, {5879, -1500, -281, -607, 5488, -783, -153, -1274, 5523}},
});
constexpr auto kBlock06 = model_data({
    {1, {6596, -2120, -381, -1117, 6501, -1287, -209, -2660, 6963}},
    {2, {6903, -2022, -782, -1580, 6709, -1035, -345, -3036, 7477}},
    {3, {6464, -1878, -493, -1112, 6671, -1462, -229, -2304, 6630}},
    {5, {5636, -1238, -305, -740, 5465, -629, -136, -1440, 5670}},
});
constexpr auto kBlock07 = model_data({
    {1, {6504, -2012, -395, -1106, 6154, -953, -166, -1835, 6097}},
    {2, {6895, -2076, -723, -1428, 6454, -931, -352, -3298, 7745}},
    {3, {6787, -2154, -538, -1151, 6553, -1305, -215, -2475, 6784}},
    {4, {6329, -1964, -269, -802, 5961, -1063, -120, -1902, 6116}},
    {5, {5480, -1161, -221, -638, 5293, -559, -139, -1367, 5599}},
});
constexpr auto kBlock08 = model_data({
    {1, {6572, -2046, -429, -1013, 6409, -1304, -203, -1908, 6205}},
    {2, {7202, -2478, -625, -1452, 6774, -1228, -324, -2916, 7335}},
    {5, {5402, -1042, -262, -682, 5442, -665, -131, -1236, 5459}},
});
constexpr auto kBlock09 = model_data({
    {1, {6313, -1886, -331, -1080, 6159, -983, -210, -1988, 6291}},
    {2, {6977, -2237, -648, -1400, 6722, -1228, -308, -3126, 7531}},
    {4, {6189, -1864, -226, -1014, 6193, -1081, -162, -1586, 5845}},
    {5, {5693, -1320, -275, -586, 5236, -555, -109, -1397, 5598}},
});
constexpr auto kBlock10 = model_data({
    {1, {6565, -2073, -397, -1132, 6381, -1154, -255, -3007, 7361}},
    {2, {7338, -2513, -729, -1724, 7286, -1468, -368, -4067, 8527}},
    {3, {6636, -2030, -508, -1416, 6719, -1209, -264, -3474, 7834}},
    {5, {5676, -1241, -339, -859, 5668, -713, -166, -1474, 5733}},
});
constexpr auto kBlock11 = model_data({
    {1, {5650, -1252, -300, -862, 5775, -817, -137, -1801, 6030}},
    {2, {6124, -1505, -527, -1077, 5949, -775, -312, -2722, 7126}},
    {3, {5751, -1302, -357, -939, 5837, -802, -202, -2283, 6578}},
    {4, {6041, -1716, -229, -833, 5707, -778, -120, -1338, 5550}},
    {5, {5410, -1082, -230, -526, 5053, -435, -112, -1163, 5372}},
});
constexpr auto kBlock12 = model_data({
    {1, {6131, -1746, -293, -1038, 6349, -1219, -201, -1836, 6132}},
    {2, {6719, -1949, -672, -1488, 6769, -1186, -357, -2759, 7213}},
    {5, {5616, -1280, -244, -691, 5502, -714, -105, -1500, 5704}},
});
constexpr auto kBlock13 = model_data({
    {1, {6249, -1760, -390, -1190, 6302, -1017, -172, -1862, 6130}},
    {2, {7418, -2580, -739, -1397, 6763, -1269, -343, -3489, 7931}},
    {4, {6155, -1727, -332, -1065, 6191, -1027, -164, -2241, 6503}},
    {5, {5444, -1062, -287, -601, 5382, -683, -108, -1511, 5714}},
});
constexpr auto kBlock14 = model_data({
    {1, {5854, -1473, -286, -922, 5736, -719, -131, -1920, 6147}},
    {2, {6181, -1521, -564, -1186, 6274, -993, -273, -2309, 6679}},
    {3, {6064, -1547, -423, -914, 5879, -869, -229, -1696, 6019}},
    {5, {5209, -906, -205, -427, 5074, -555, -88, -1059, 5242}},
});
constexpr auto kBlock15 = model_data({
    {1, {5994, -1664, -237, -913, 5832, -827, -146, -1476, 5720}},
    {2, {6699, -1963, -641, -1207, 6290, -991, -277, -2631, 7007}},
    {3, {6231, -1723, -411, -886, 5790, -808, -181, -1749, 6026}},
    {4, {5815, -1532, -190, -863, 5925, -970, -88, -1318, 5505}},
    {5, {5352, -1072, -184, -465, 5075, -516, -117, -1209, 5422}},
});
constexpr auto kBlock16 = model_data({
    {1, {5783, -1365, -320, -701, 5515, -718, -121, -1607, 5824}},
    {2, {6406, -1676, -635, -1153, 6167, -916, -314, -2654, 7064}},
    {5, {5105, -781, -226, -568, 5255, -595, -113, -1076, 5281}},
});
constexpr auto kBlock17 = model_data({
    {1, {6008, -1544, -368, -867, 5868, -905, -155, -2032, 6283}},
    {2, {6328, -1650, -579, -1270, 6388, -1022, -285, -2967, 7348}},
    {4, {6311, -2004, -214, -963, 6076, -1016, -149, -1750, 5994}},
    {5, {5259, -932, -233, -568, 5380, -713, -130, -1255, 5483}},
});
constexpr auto kBlock18 = model_data({
    {1, {6331, -1830, -408, -1092, 6235, -1050, -216, -2274, 6585}},
    {2, {6932, -2020, -818, -1323, 6821, -1402, -365, -3442, 7903}},
    {3, {6723, -2020, -606, -1435, 7001, -1474, -248, -3186, 7530}},
    {5, {5692, -1321, -279, -681, 5623, -846, -159, -1741, 5992}},
});
constexpr auto kBlock19 = model_data({
    {1, {7157, -2608, -455, -1080, 6585, -1408, -238, -2382, 6719}},
    {2, {7937, -3012, -826, -1544, 7265, -1627, -382, -4168, 8648}},
    {3, {7442, -2660, -686, -1569, 7377, -1709, -279, -2667, 7044}},
    {4, {6740, -2250, -391, -992, 6614, -1525, -204, -2777, 7079}},
    {5, {5883, -1426, -362, -783, 5796, -915, -155, -1757, 6007}},
});
constexpr auto kBlock20 = model_data({
    {1, {6623, -2133, -397, -1301, 6436, -1036, -217, -2575, 6891}},
    {2, {7303, -2439, -768, -1472, 6960, -1394, -368, -3523, 7987}},
    {5, {5848, -1450, -302, -835, 5708, -777, -132, -1670, 5898}},
});
constexpr auto kBlock21 = model_data({
    {1, {6584, -2107, -381, -1211, 6556, -1250, -227, -2751, 7074}},
    {2, {7693, -2864, -730, -1555, 6939, -1287, -429, -3671, 8193}},
    {4, {6596, -2072, -428, -1028, 6658, -1534, -183, -2262, 6537}},
    {5, {5594, -1187, -311, -681, 5589, -812, -156, -1737, 5989}},
});
constexpr auto kBlock22 = model_data({
    {1, {6944, -2476, -371, -937, 6356, -1325, -215, -2758, 7067}},
    {2, {7472, -2603, -777, -1474, 6915, -1346, -325, -3754, 8171}},
    {3, {6529, -1931, -504, -1300, 6564, -1165, -273, -2414, 6780}},
    {5, {5510, -1107, -311, -693, 5585, -796, -117, -1276, 5489}},
});
constexpr auto kBlock23 = model_data({
    {1, {6568, -2118, -358, -1078, 6123, -949, -143, -1986, 6226}},
    {2, {7041, -2241, -704, -1354, 6630, -1177, -309, -3117, 7519}},
    {3, {6191, -1678, -418, -1270, 6510, -1143, -247, -2527, 6869}},
    {4, {5892, -1583, -216, -826, 5885, -962, -164, -2083, 6343}},
    {5, {5304, -940, -268, -673, 5334, -567, -137, -1285, 5518}},
});
constexpr auto kBlock24 = model_data({
    {1, {6312, -1931, -285, -895, 5901, -910, -182, -2120, 6398}},
    {2, {6596, -1875, -624, -1166, 6230, -972, -319, -2896, 7314}},
    {5, {5447, -1120, -230, -558, 5232, -578, -120, -1089, 5308}},
});
constexpr auto kNoMatrices = model_data();

constexpr std::uint16_t kVendorA = 0xE6C1;
constexpr std::uint16_t kVendorB = 0xE6C2;
constexpr std::uint16_t kVendorFx2 = 0x04B4;  // the maker of the FX2; a bare one presents itself as 04B4:8613

}  // namespace

// The vendors whose devices may still lack firmware, in the order in which start-up looks for them.
const std::uint16_t kStartupVendors[3] = {kVendorA, kVendorB, kVendorFx2};

// product, vendor, release, subsampling, firmware file, FPGA file, model data. Rows that share product and
// vendor stand together. Product IDs are unique among vendors, since lookups go by product ID alone.
const camera_id camera_ids[] = {
    {0x0113, kVendorA, 0xFFFF, 1, "mira13c/firm%X.HEX", "mira13c/fpga%X.rbf", kBlock00.data(), kBlock00.size()},
    {0x0114, kVendorA, 0xFFFF, 1, "mira13m/firm%X.HEX", "mira13m/fpga%X.rbf", kBlock00.data(), kBlock00.size()},
    {0x0120, kVendorA, 0xFFFF, 0, "mira20c/firm%X.HEX", "mira20c/fpga%X.rbf", kBlock01.data(), kBlock01.size()},
    {0x0121, kVendorA, 0xFFFF, 0, "mira20m/firm%X.HEX", "mira20m/fpga%X.rbf", kBlock01.data(), kBlock01.size()},
    {0x0132, kVendorA, 0xFFFF, 1, "mira32c/firm%X.HEX", "mira32c/fpga%X.rbf", kBlock02.data(), kBlock02.size()},
    {0x0150, kVendorA, 0xFFFF, 1, "mira50c/firm%X.HEX", "mira50c/fpga%X.rbf", kBlock03.data(), kBlock03.size()},
    {0x0151, kVendorA, 0xFFFF, 0, "mira50m/firm%X.HEX", "mira50m/fpga%X.rbf", kBlock04.data(), kBlock04.size()},
    {0x0203, kVendorA, 0xFFFF, 0, "lyra03c/firm%X.HEX", "lyra03c/fpga%X.rbf", kBlock05.data(), kBlock05.size()},
    {0x0204, kVendorA, 0xFFFF, 0, "lyra03m/firm%X.HEX", "lyra03m/fpga%X.rbf", kBlock05.data(), kBlock05.size()},
    {0x0208, kVendorA, 0xFFFF, 0, "lyra08c/firm%X.HEX", "lyra08c/fpga0.rbf", kBlock06.data(), kBlock06.size()},
    {0x0214, kVendorA, 0x0000, 0, "lyra14c/firm0.HEX", "lyra14c/fpga%X.rbf", kBlock07.data(), kBlock07.size()},
    {0x0214, kVendorA, 0x0001, 0, "lyra14c/firm0.HEX", "lyra14c/fpga%X.rbf", kBlock07.data(), kBlock07.size()},
    {0x0214, kVendorA, 0x0002, 0, "lyra14c/firm1.HEX", "lyra14c/fpga%X.rbf", kBlock07.data(), kBlock07.size()},
    {0x0220, kVendorA, 0xFFFF, 0, "lyra20c/firm%X.HEX", "lyra20c/fpga%X.rbf", kBlock08.data(), kBlock08.size()},
    {0x0221, kVendorA, 0xFFFF, 0, "lyra20m/firm%X.HEX", "lyra20m/fpga%X.rbf", kBlock09.data(), kBlock09.size()},
    {0x0240, kVendorA, 0xFFFF, 0, "lyra40c/firm%X.HEX", "lyra40c/fpga10.rbf", kBlock10.data(), kBlock10.size()},
    {0x0306, kVendorB, 0xFFFF, 0, "atria06c/firm%X.HEX", "atria06c/fpga%X.rbf", kBlock11.data(), kBlock11.size()},
    {0x0307, kVendorB, 0xFFFF, 0, "atria06m/firm%X.HEX", "atria06m/fpga%X.rbf", kBlock11.data(), kBlock11.size()},
    {0x0315, kVendorB, 0xFFFF, 0, "atria15c/firm%X.HEX", "atria15c/fpga%X.rbf", kBlock12.data(), kBlock12.size()},
    {0x0316, kVendorB, 0xFFFF, 0, "atria15m/firm%X.HEX", "atria15m/fpga%X.rbf", kBlock13.data(), kBlock13.size()},
    {0x0328, kVendorB, 0xFFFF, 0, "atria28c/firm%X.HEX", "atria28c/fpga%X.rbf", kBlock14.data(), kBlock14.size()},
    {0x0329, kVendorB, 0xFFFF, 0, "atria28m/firm%X.HEX", "atria28m/fpga%X.rbf", kBlock15.data(), kBlock15.size()},
    {0x0360, kVendorB, 0xFFFF, 0, "atria60c/firm%X.HEX", "atria60c/fpga%X.rbf", kBlock16.data(), kBlock16.size()},
    {0x0383, kVendorB, 0xFFFF, 0, "atria83c/firm%X.HEX", "atria83c/fpga%X.rbf", kBlock17.data(), kBlock17.size()},
    {0x0409, kVendorB, 0xFFFF, 0, "norma09c/firm%X.HEX", "norma09c/fpga%X.rbf", kBlock18.data(), kBlock18.size()},
    {0x040A, kVendorB, 0xFFFF, 0, "norma09m/firm%X.HEX", "norma09m/fpga%X.rbf", kBlock18.data(), kBlock18.size()},
    {0x0412, kVendorB, 0xFFFF, 0, "norma12c/firm1.HEX", "norma12c/fpga%X.rbf", kBlock19.data(), kBlock19.size()},
    {0x0417, kVendorB, 0xFFFF, 0, "norma12m/firm%X.HEX", "norma12m/fpga%X.rbf", kBlock20.data(), kBlock20.size()},
    {0x0421, kVendorB, 0xFFFF, 1, "norma21c/firm%X.HEX", "norma21c/fpga%X.rbf", kBlock21.data(), kBlock21.size()},
    {0x0436, kVendorB, 0xFFFF, 0, "norma36c/firm%X.HEX", "norma36c/fpga%X.rbf", kBlock22.data(), kBlock22.size()},
    {0x0437, kVendorB, 0xFFFF, 0, "norma36x/firm%X.HEX", "norma36x/fpga%X.rbf", kBlock23.data(), kBlock23.size()},
    {0x0503, kVendorB, 0xFFFF, 0, "tiro03c/firm%X.HEX", "tiro03c/fpga%X.rbf", kBlock24.data(), kBlock24.size()},
    {0x0613, kVendorFx2, 0xFFFF, 0, "atlas13c/firm%X.HEX", nullptr, kNoMatrices.data(), kNoMatrices.size()},
};
const std::int32_t camera_id_count = 33;
static_assert(std::size(camera_ids) == 33);
