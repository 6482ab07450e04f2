// The message table of the kit's error codes, kept as data: one row per code that has a
// text, in code order. Every text is exact to the byte, blanks included; several texts
// stand under more than one code, and each code keeps its own row.
//
// The rows are spread at compile time into the table of 6 categories of 175 slots, where
// every code without a row stays null. The lookup rules live in error.cpp.

#include <array>
#include <cstddef>
#include <iterator>

#include "error/error_codes.h"

namespace qel {
namespace {

struct MessageRow {
    unsigned int code;
    const char* text;
};

// clang-format off
constexpr MessageRow kMessageRows[] = {
    // Category 0
    {0x80300000u, "No Error! System Base Code"},
    {0x80300001u, "System calls failed!"},
    {0x80300002u, "Failed to open the file!"},

    // Category 1
    {0x80300100u, "No Error! Common Base Code"},
    {0x80300101u, "Device has not been initialized, please call qelInitialize first!"},
    {0x80300102u, "The device is closed, please open it first!"},
    {0x80300103u, "Too many devices has been opened, can not open another one!"},
    {0x80300104u, "The device is disconnected, please check the device"},
    {0x80300105u, "Can not find the valid stream!"},
    {0x80300106u, "Too many streams has been opened, can not open another one!"},
    {0x80300107u, "No frame data right now, try reading it later!"},
    {0x80300108u, "Can not find the record stream!"},
    {0x80300109u, "NULL pointer error!"},
    {0x8030010Au, "Wait timeout!"},
    {0x8030010Bu, "Set property value failed!"},
    {0x8030010Cu, "Get property value failed!"},
    {0x8030010Du, "Unsupported driver type!"},
    {0x8030010Eu, "Can not open this type of stream!"},
    {0x8030010Fu, "Load library failed, please check whether avcodec-56.dll, avutil-54.dllswresample-1.dll and swscale-3.dll are all exist!"},
    {0x80300110u, "Get proc address failed!"},
    {0x80300111u, "Common operation not supported! "},

    // Category 2
    {0x80300200u, "No Error! Param Base Code"},
    {0x80300201u, "The first pointer parameter is NULL!"},
    {0x80300202u, "The second pointer parameter is NULL!"},
    {0x80300203u, "The third pointer parameter is NULL!"},
    {0x80300204u, "The fourth pointer parameter is NULL!"},
    {0x80300205u, "The fifth pointer parameter is NULL!"},
    {0x80300206u, "The value of the parameter is invalid!"},
    {0x80300207u, "The parameter frame type is invalid!"},
    {0x80300208u, "Device URI is invalid!"},
    {0x80300209u, "Data type is invalid!"},

    // Category 3
    {0x80300300u, "No Error! USB Base Code"},
    {0x80300301u, "USB initialize failed!"},
    {0x80300302u, "USB open device failed!"},
    {0x80300303u, "libusb_cancel_transfer usb_cancel_async failed!"},
    {0x80300304u, "ReapTransfer libusbemu_reap invalid"},
    {0x80300305u, "libusbemu reap failure"},
    {0x80300306u, "Hot plug init failed!"},
    {0x80300307u, "Wait Object failed"},
    {0x80300308u, "GetOverlappedResult failed"},
    {0x80300309u, "pDataHead->nMagic, data is mess, trying to correction"},
    {0x8030030Au, "No Mess data"},
    {0x8030030Bu, "read Mess data end"},
    {0x8030030Cu, "USBK device list init failed!"},
    {0x8030030Du, "Device path is not in the device list!"},
    {0x8030030Eu, "usbK API init failed!"},
    {0x8030030Fu, "usbk claim interface failed!"},
    {0x80300310u, "usbK reset device failed!"},
    {0x80300311u, "Interface/alt setting number failed!"},
    {0x80300312u, "buffer size is zero, please check it!"},
    {0x80300313u, "USB wrong send control type"},
    {0x80300314u, "USB wrong receive control type"},
    {0x80300315u, "async thread error!"},
    {0x80300316u, "RegisterClass failure!"},
    {0x80300317u, "RegisterDeviceNotification failure!"},
    {0x80300318u, "Endpoint.failed to submit asynch I/O transfer!"},
    {0x80300319u, "Libusb resetDevice open failed."},
    {0x8030031Au, "Libusb resetDevice claim interface failed"},
    {0x8030031Bu, "Libusb resetDevice failed"},
    {0x8030031Cu, "qelUSBOpenDeviceImplResetDevice failed!"},
    {0x8030031Du, "Libusb open failed"},
    {0x8030031Eu, "Libusb claim interface failed"},
    {0x8030031Fu, "filepath is empty!"},
    {0x80300320u, "qelUSBUpdateAP Open File Failed"},
    {0x80300321u, "Calculate MD5 failed!"},
    {0x80300322u, "Device getHubNumber failed!"},

    // Category 4
    {0x80300400u, "No Error! SDK Errcode Code Base"},
    {0x80300401u, "Separate URL with , failed!"},
    {0x80300402u, "Segment do not match !"},
    {0x80300403u, "Separate URL is part, not 4(code,msg,data,url)"},
    {0x80300404u, "code is not 0!"},
    {0x80300405u, "msg is not ok!"},
    {0x80300406u, "url's format in data is invalid!"},
    {0x80300407u, "md5's format in data is invalid!"},
    {0x80300408u, "Format http get url error!"},
    {0x80300409u, "HTTP get nothing!"},
    {0x8030040Au, "dodownload file is invalid"},
    {0x8030040Bu, "Invalid program file!"},
    {0x8030040Cu, "Fork program failed!"},
    {0x8030040Du, "Calculate CRC failed due to open file failed!"},
    {0x8030040Eu, "MD5File Apply memory faield!"},
    {0x8030040Fu, "MD5String Apply memory faield!"},
    {0x80300410u, "thread_ not created"},
    {0x80300411u, "Unable to Set thread's priority!"},
    {0x80300412u, "Start Thread Failed"},

    // Category 5
    {0x80300500u, "No Error! SDK error code base"},
    {0x80300501u, "Cannot locate reference to Direct3DCreate9 ABI in DLL"},
    {0x80300502u, "Direct3DCreate9 failed"},
    {0x80300503u, "Create d3d device failed!"},
    {0x80300504u, "IDirect3D9_GetAdapterIdentifier failed"},
    {0x80300505u, "IDirectXVideoAccelerationService_CreateSurface failed"},
    {0x80300506u, "IDirectXVideoDecoderService_GetDecoderConfigurations failed"},
    {0x80300507u, "Failed to find a supported decoder configuration"},
    {0x80300508u, "IDirectXVideoDecoderService_CreateVideoDecoder failed"},
    {0x80300509u, "cannot load DXVA2CreateDirect3DDeviceManager9 function"},
    {0x8030050Au, "OurDirect3DCreateDeviceManager9 failed"},
    {0x8030050Bu, "IDirect3DDeviceManager9_ResetDevice failed"},
    {0x8030050Cu, "cannot load function DXVA2CreateVideoService"},
    {0x8030050Du, "OpenDeviceHandle failed"},
    {0x8030050Eu, "GetVideoService failed"},
    {0x8030050Fu, "VlcVaDxva2 cannot load d3d9.dll"},
    {0x80300510u, "VlcVaDxva2 cannot load dxva2.dll"},
    {0x80300511u, "VlcVaDxva2 create Direct3D device Failed"},
    {0x80300512u, "d3dCreateDeviceManager failed"},
    {0x80300513u, "dxCreateVideoService failed"},
    {0x80300514u, "dxFindVideoServiceConversion failed"},
    {0x80300515u, "IDirect3DDeviceManager9_TestDevice failed"},
    {0x80300516u, "vlc_va_setVlcVaDxva2 failed"},
    {0x80300517u, "VaGrabSurface failed"},
    {0x80300518u, "Error hanpped in Waiting new frame event"},
    {0x80300519u, "Invalid parameter: prop is NULL"},
    {0x8030051Au, "Invalid parameter: props is NULL"},
    {0x8030051Bu, "QelDevice_setIntPropertyCallback Type is not int!"},
    {0x8030051Cu, "setIntPropertyCallback Invalid length"},
    {0x8030051Du, "Invalid value,sharpness must between 0 and 100"},
    {0x8030051Eu, "getIntPropertyCallback Type is not int!"},
    {0x8030051Fu, "getIntPropertyCallback Invalid len"},
    {0x80300520u, "setResolutionCallback Property Id invalid!"},
    {0x80300521u, "setResolutionCallback Invalid Resolution"},
    {0x80300522u, "setResolutionCallback Not Support Resolution"},
    {0x80300523u, "resetDeviceCallback Invalid parameter"},
    {0x80300524u, "setCmosRigisterCallback Invalid parameter"},
    {0x80300525u, "getCmosRigisterCallback Invalid parameter"},
    {0x80300526u, "getVersionCallback Invalid parameter"},
    {0x80300527u, "setTecPointCallback Invalid parameter"},
    {0x80300528u, "getTecStatusCallback Invalid parameter"},
    {0x80300529u, "getFirmwareLog Invalid parameter"},
    {0x8030052Au, "QelDevice_writeAHBCallback Invalid parameter"},
    {0x8030052Bu, "readAHBCallback Invalid parameter"},
    {0x8030052Cu, "setFlashDataCallback Invalid parameter"},
    {0x8030052Du, "getFlashDataCallback Invalid parameter"},
    {0x8030052Eu, "convert void* to QelDevice* failed!"},
    {0x8030052Fu, "safety params value pointer is NULL"},
    {0x80300530u, "setSafetyParams safety params size is 0"},
    {0x80300531u, "convert void* to QelDevice* failed!"},
    {0x80300532u, "safety params value pointer is NULL"},
    {0x80300533u, "setRegistrationParams safety params size is 0"},
    {0x80300534u, "Get File list Failed"},
    {0x80300535u, "UploadFile Open File Failed"},
    {0x80300536u, "Init Upload File Failed"},
    {0x80300537u, "Write Upload File Failed"},
    {0x80300538u, "Finish Upload File Failed"},
    {0x80300539u, "setRegistration Invalid registration mode"},
    {0x8030053Au, "setRegistrationCallback Invalid parameter"},
    {0x8030053Bu, "getRegistrationCallback Invalid parameter"},
    {0x8030053Cu, "qelUSBShutdown fail!"},
    {0x8030053Du, "qelUSBRegisterToConnectivityEvents failed!"},
    {0x8030053Eu, "handlehotplugevent Invalid paramter!"},
    {0x8030053Fu, "openDevice->qelUSBOpenDeviceByfd failed!"},
    {0x80300540u, "openDevice Invalid device mode."},
    {0x80300541u, "closeDevice Failed device is null."},
    {0x80300542u, "Ut-ExecuteCMD:invalid parameter,null==pSend"},
    {0x80300543u, "Ut-ExecuteCMD:invalid parameter,null==pRecv"},
    {0x80300544u, "Ut-ExecuteCMD:invalid parameter,cmd length error"},
    {0x80300545u, "Ut-ExecuteCMD:Invalid command head"},
    {0x80300546u, "Ut-ExecuteCMD:send control msg fail!"},
    {0x80300547u, "Ut-ExecuteCMD:Receive Timeout"},
    {0x80300548u, "Ut-ExecuteCMD:return value length error"},
    {0x80300549u, "qelProtocolSetProperty pValue is null"},
    {0x8030054Au, "qelProtocolGetProperty return value length error"},
    {0x8030054Bu, "qelProtocolGetSerialNo return value length error"},
    {0x8030054Cu, "qelProtocolGetSafetyParam return value length error"},
    {0x8030054Du, "qelProtocolSetCmosRigister Invalid nValue, can not be NULL"},
    {0x8030054Eu, "qelProtocolGetCmosRigister return value length error"},
    {0x8030054Fu, "qelProtocolPrivateSet len error"},
    {0x80300550u, "qelProtocolPrivateGet return value length error"},
    {0x80300551u, "GetVersion return length Error:"},
    {0x80300552u, "getLog Open File Failed"},
    {0x80300553u, "ExecuteCMD sync time failed!"},
    {0x80300554u, "Invalid pAHBData, can not be NULL"},
    {0x80300555u, "FileDownload Open File Failed"},
    {0x80300556u, "qelProtocolReadAHB return value length error"},
    {0x80300557u, "qelProtocolGetTecData return value length error"},
    {0x80300558u, "SetFirmwareData Init Upload File error"},
    {0x80300559u, "SetFirmwareData Write Upload File error"},
    {0x8030055Au, "SetFirmwareData Finish Upload File error"},
    {0x8030055Bu, "SetFixedParams Init Upload File error"},
    {0x8030055Cu, "SetFixedParams Write Upload File error"},
    {0x8030055Du, "SetFixedParams Finish Upload File error"},
    {0x8030055Eu, "Open EndPoint Failed"},
    {0x8030055Fu, "Start EndPoint Failed"},
    {0x80300560u, "usb Not Started!"},
    {0x80300561u, "QelShortProperty_getMemberValue Invalid parameter"},
    {0x80300562u, "QelShortProperty_checkIfChanged Invalid parameter"},
    {0x80300563u, "QelShortProperty_setMemberValue Invalid parameter"},
    {0x80300564u, "checkValidOfMode FrameMode not support"},
    {0x80300565u, "setCurrentAndFirmwareFrameMode FrameMode not support"},
    {0x80300566u, "qelResolution2Number Invalid resolution"},
    {0x80300567u, "startImpl fail "},
    {0x80300568u, "close sensorHW fail"},
    {0x80300569u, "Stop stream  fail!"},
    {0x8030056Au, "qelProtocolReset"},
    {0x8030056Bu, "ExecuteCMD Open error"},
    {0x8030056Cu, "ExecuteCMD Close error"},
    {0x8030056Du, "allocOneFrame fail!"},
    {0x8030056Eu, "Frame Buffer OverFlow"},
    {0x8030056Fu, "m_qelFrame is NULL, Maybe StartBuffer is missing"},
    {0x80300570u, "pDataHead->nMagic(0x) != 0x Error!"},
    {0x80300571u, "nBufferSize() != pCurrHeader->nBufSize() error"},
    {0x80300572u, "processChunk Parameter Error!"},
    {0x80300573u, "pDataHead->nMagic(0x) != 0x Error!"},
    {0x80300574u, "processChunk Buffer size() error"},
    {0x80300575u, "processChunk BufferHead error"},
    {0x80300576u, "processChunk BufferHead size() error"},
    {0x80300577u, "Decoder initialize failed!"},
    {0x80300578u, "setFrameMode error closeSensorHW closed !"},
    {0x80300579u, "QelStreamImplColor Packet buf ID check error"},
    {0x8030057Au, "QelStreamImplColor H264 Packet buf ID check error"},
    {0x8030057Bu, "QelStreamImplColor m_qelFrame is NULL"},
    {0x8030057Cu, "QelStreamImplDepth m_qelFrame is NULL"},
    {0x8030057Du, "QelStreamImplDepth_setFrameMode error closeSensorHW closed !"},
    {0x8030057Eu, "QelStreamImplDepthSkeleton m_qelFrame is NULL"},
    {0x8030057Fu, "QelStreamImplIR Packet end ID check error"},
    {0x80300580u, "QelStreamImplIR_setFrameMode error closeSensorHW close !"},
    {0x80300581u, "No Use Now"},
    {0x80300582u, "QelStreamImplSkeleton_processEndFrame m_qelFrame is NULL"},
    {0x80300583u, "QelStreamImplSkeleton Frame Buffer OverFlow frameBuffer is error"},
    {0x80300584u, "QelStreamImplSkeleton_setFrameMode error closeSensorHW closed !"},
    {0x80300585u, "QelStreamImplUserIndexSkeleton m_qelFrame is NULL"},
    {0x80300586u, "QelStreamImplUserIndexSkeleton Packet buf ID check error"},
    {0x80300587u, "QelStreamImplUserIndexSkeleton_setFrameMode error"},
    {0x80300588u, "DummyDevice_addProperty Invalid parameter: prop is NULL"},
    {0x80300589u, "DummyDevice_addPropertys Invalid parameter: props is NULL"},
    {0x8030058Au, "DummyDevice_setIntPropertyCallback Type is not int!"},
    {0x8030058Bu, "DummyDevice_getIntPropertyCallback Type is not int!"},
    {0x8030058Cu, "DummyDevice_getIntPropertyCallback Invalid len"},
    {0x8030058Du, "DummyDevice_setCmosRigisterCallback Invalid parameter"},
    {0x8030058Eu, "DummyDevice_getCmosRigisterCallback Invalid parameter"},
    {0x8030058Fu, "DummyDevice_getFirmwareLog Invalid parameter"},
    {0x80300590u, "DummyDevice_getVersionCallback Invalid parameter"},
    {0x80300591u, "DummyDevice_writeAHBCallback Invalid parameter"},
    {0x80300592u, "DummyDevice_readAHBCallback Invalid parameter"},
    {0x80300593u, "DummyDevice_getDeviceList the pointer is NULL!"},
    {0x80300594u, "DummyDevice Handlehotplugevent INVALIDPARAM"},
    {0x80300595u, "Open Device Failed"},
    {0x80300596u, "openDeviceByFd Open Device Failed"},
    {0x80300597u, "Device_isConflictWithOpenedStreams Invalid QelFrameType"},
    {0x80300598u, "Did not Initialized! Please Initialize First!"},
    {0x80300599u, "Context Open Device Failed"},
    {0x8030059Au, "Context Open2 Device Failed"},
    {0x8030059Bu, "Context_qelGetDeviceAttributeByUri Param can't been null"},
    {0x8030059Cu, "CreateStream failed!"},
    {0x8030059Du, "Start Stream failed"},
    {0x8030059Eu, "Failed to alloc memory size!!!"},
    {0x8030059Fu, "No available Frame!!!"},
    {0x803005A0u, "allocOneFrame failed!"},
    {0x803005A1u, "HTTP get nothing!"},
    {0x803005A2u, "jsonxx parse no data found!"},
    {0x803005A3u, "jsonxx parse failed!"},
    {0x803005A4u, "Failed to createDirectory "},
    {0x803005A5u, "update ap, init cmd failed!"},
    {0x803005A6u, "StreamRecorder delete file error"},
    {0x803005A7u, "StreamRecorder File opened error"},
    {0x803005A8u, "get current Framamode failed!"},
    {0x803005A9u, "Start Driver Stream Failed,retcode"},
    {0x803005AAu, "Error hanpped in Waiting new frame event"},
    {0x803005ABu, "SensorFrameSync_addSensor NullPointer Input Parameter!"},
    {0x803005ACu, "SensorFrameSync_removeSensor NullPointer Input Parameter!"},
    {0x803005ADu, "Error hanpped in Waiting new frame event"},
    {0x803005AEu, "Device is already opened!"},
};
// clang-format on

using MessageTable = std::array<const char*, kErrorCategoryCount * kErrorIndexCount>;

// Every row must be a code of the kit's layout, in a category and index the table holds,
// and above the row before it, so that no code has two rows and none lands out of place.
constexpr bool rowsAreWellFormed() {
    unsigned int previous = 0;
    for (const MessageRow& row : kMessageRows) {
        if ((row.code & 0xFFFF0000u) != 0x80300000u || row.code <= previous) {
            return false;
        }
        if (((row.code >> 8) & 0xFFu) >= kErrorCategoryCount ||
            (row.code & 0xFFu) >= kErrorIndexCount) {
            return false;
        }
        previous = row.code;
    }
    return true;
}
static_assert(rowsAreWellFormed(), "each message row needs its own code of the 0x8030CCII layout");
static_assert(std::size(kMessageRows) == 260, "the kit has 260 messages");

constexpr MessageTable buildTable() {
    MessageTable table{};
    for (const MessageRow& row : kMessageRows) {
        const unsigned int category = (row.code >> 8) & 0xFFu;
        const unsigned int index = row.code & 0xFFu;
        table[category * kErrorIndexCount + index] = row.text;
    }
    return table;
}

constexpr MessageTable kMessageTable = buildTable();

}  // namespace

const char* errorTableEntry(unsigned int category, unsigned int index) {
    return kMessageTable[category * kErrorIndexCount + index];
}

}  // namespace qel
