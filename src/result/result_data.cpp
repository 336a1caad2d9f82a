// One entry of the result table.
#include "result/result_data.h"

#include "kivo/os_bounds.h"

tagKivoOmInspectionResult MakeResult(const char* name, const char* status, const char* text) {
    tagKivoOmInspectionResult result{};
    (void)strcpy_s(result.name, sizeof(result.name), name);
    (void)strcpy_s(result.status, sizeof(result.status), status);
    (void)strcpy_s(result.text, sizeof(result.text), text);
    return result;
}

tagKivoOmInspectionDataItem MakeDataItem(const ResultData& data) {
    return {data.result, data.startTime, data.endTime};
}
