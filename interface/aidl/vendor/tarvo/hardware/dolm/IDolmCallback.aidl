package vendor.tarvo.hardware.dolm;

import vendor.tarvo.hardware.dolm.DolmRequestData;

/** Implemented by clients: the service reports resource ids and values through it. */
@VintfStability
interface IDolmCallback {
    void onCallback(in DolmRequestData[] data);
}
