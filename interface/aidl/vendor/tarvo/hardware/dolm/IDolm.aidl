package vendor.tarvo.hardware.dolm;

import vendor.tarvo.hardware.dolm.DolmRequestData;
import vendor.tarvo.hardware.dolm.DolmRequestParcel;
import vendor.tarvo.hardware.dolm.IDolmCallback;

/** The resource-control service. Instance "vendor.tarvo.hardware.dolm.IDolm/default". */
@VintfStability
interface IDolm {
    void init();
    /** Returns the request's handle, or the service's result code. */
    int request(in DolmRequestParcel parcel);
    int release(int handle);
    DolmRequestData[] getData(in DolmRequestParcel parcel);
    /** Returns the listener's handle. */
    int registerListener(in DolmRequestParcel parcel, in @nullable IDolmCallback callback);
    int unregisterListener(int handle);
    String getProperty(String key);
    int setProperty(String key, String value);
    /** Returns the listener's handle. */
    int registerThermalListener(in int[] ids, in @nullable IDolmCallback callback);
    int unregisterThermalListener(int handle);
    /** Holds the place of a service operation that clients of this library never call. */
    int reserved(in DolmRequestParcel parcel);
    int setRelatedSysInfo(int type, String info);
    int ruleCtl(int ruleId, int status, in DolmRequestData[] data);
}
