package vendor.tarvo.hardware.dolm;

/**
 * One entry of a request or of an answer: a resource, a sub-system, a command
 * or a dump code, with what belongs to it.
 */
@VintfStability
parcelable DolmRequestData {
    /** Resource id (sub-system id, command id or dump code); 0 in path-addressed entries. */
    int id;
    /** A second number for the same id; only notify requests set it. */
    int param;
    /** The value as text; absent and present-empty differ. */
    @nullable String value;
    /** The resource path of path-addressed entries. */
    @nullable String path;
    /** Extra text the service may return (history queries). */
    @nullable String extra;
}
