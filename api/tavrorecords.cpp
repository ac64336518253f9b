#include "tavrorecords.h"

#include <cstring>

namespace TavroApi {

namespace {

template <class T>
RecordInfo info() {
    return RecordInfo{T::typeName, T::getMembers(), uint32_t(sizeof(T))};
}

const RecordInfo* records(int& number) {
    static const RecordInfo all[] = {
        info<ApiVersion>(),    info<Version>(),           info<NodeInfo>(),
        info<NodeStatus>(),    info<BoardConfig>(),       info<ChannelConfig>(),
        info<Information>(),   info<AlarmConfig>(),       info<Configuration>(),
        info<ConfigItem>(),    info<MeasurementConfig>(), info<DataBlockHeader>(),
        info<DataBlock>(),     info<DataBlockFloat>(),    info<DataProc>(),
        info<DataBlockProc>(), info<InfoBlock>(),         info<AwgConfig>(),
        info<FilesysInfo>(),   info<FileInfo>(),          info<FileData>(),
        info<CalibrateInfo>(), info<WifiAccessPoint>(),   info<SerialConfig>(),
        info<StreamData>(),    info<DevConfig>(),         info<Transact>()};
    number = int(sizeof(all) / sizeof(all[0]));
    return all;
}

} // namespace

const RecordInfo* recordInfoFind(const char* typeName) {
    if (!typeName)
        return nullptr;
    int n = 0;
    const RecordInfo* all = records(n);
    for (int i = 0; i < n; i++) {
        if (strcmp(all[i].typeName, typeName) == 0)
            return &all[i];
    }
    return nullptr;
}

const RecordInfo* recordInfoAll(int& number) {
    return records(number);
}

} // namespace TavroApi
