package vendor.tarvo.hardware.dolm;

import vendor.tarvo.hardware.dolm.DolmRequestData;
import vendor.tarvo.hardware.dolm.IDolmCallback;

/**
 * The request record of every IDolm operation that takes one. A
 * default-constructed record has every number 0, every bool false, every
 * list empty, every nullable field absent and no callback.
 */
@VintfStability
parcelable DolmRequestParcel {
    /** Kind of request: 1 resource control, 2 sub-system control, 5 diagnostics,
     *  7 thermal notify, 8 event, 10 notify, 11 history, 12 platform resource,
     *  13 power-mode status; 0 where the operation already says what is meant. */
    int requestType;
    /** The resources (or the single sub-system, command or dump code), in the caller's order. */
    DolmRequestData[] data;
    boolean flag;
    int option;
    int clientArg;
    /** Duration of the request. */
    long timeout;
    /** Set only by path-addressed requests. */
    @nullable String[] tags;
    int leadArg;
    /** The client's callback for requests that report back. */
    @nullable IDolmCallback callback;
    @nullable String pkg;
    @nullable String identity;
    @nullable int[] numbers;
}
