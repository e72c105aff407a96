// The event layer replaces its death recipient on every new connection and
// never deletes the old one (deleting it could unlink a connection that a
// call is still using), so each reconnection leaves one recipient behind by
// design. Tell LeakSanitizer about exactly that allocation site.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:zel_get_dolm_hal_and_link_to_death\n";
}
