# Runs Debian's aidl compiler over the interface's .aidl files, for the wire
# cross-check. That generator predates two things our files use, so the
# inputs and outputs are brought to the current conventions first:
#  - it knows no @VintfStability annotation: the annotation is dropped from a
#    copy of the inputs (it changes nothing on the wire);
#  - its structured parcelables write and read their own non-null marker,
#    where current code leaves the marker to the parcel helpers
#    (ndk::AParcel_writeParcelable and the vector element helpers). The marker
#    is moved accordingly, so that the bytes on the wire are what both
#    conventions agree on: marker, size, fields.
file(REMOVE_RECURSE ${OUT})
set(input ${OUT}/input)
foreach(name ${NAMES})
    file(READ ${SRC}/vendor/tarvo/hardware/dolm/${name}.aidl text)
    string(REPLACE "@VintfStability\n" "" text "${text}")
    file(WRITE ${input}/vendor/tarvo/hardware/dolm/${name}.aidl "${text}")
endforeach()
foreach(name ${NAMES})
    execute_process(
        COMMAND ${AIDL} --lang=ndk -I${input} -o ${OUT}/src -h ${OUT}/include
                ${input}/vendor/tarvo/hardware/dolm/${name}.aidl
        RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "aidl failed on ${name}.aidl")
    endif()
endforeach()

set(dir ${OUT}/src/vendor/tarvo/hardware/dolm)
foreach(name DolmRequestData DolmRequestParcel)
    file(READ ${dir}/${name}.cpp text)
    # Writer: the marker goes before the size placeholder.
    string(REPLACE "  _aidl_ret_status = AParcel_writeInt32(parcel, 1);\n  if (_aidl_ret_status != STATUS_OK) return _aidl_ret_status;\n"
                   "" text "${text}")
    # Reader: the marker goes before the size.
    string(REPLACE "  _aidl_ret_status = AParcel_readInt32(parcel, &_aidl_null);\n  if (_aidl_ret_status != STATUS_OK) return _aidl_ret_status;\n"
                   "  _aidl_null = 1;\n" text "${text}")
    file(WRITE ${dir}/${name}.cpp "${text}")
endforeach()
foreach(name IDolm IDolmCallback)
    file(READ ${dir}/${name}.cpp text)
    string(REPLACE "(in_parcel).writeToParcel(_aidl_in.get())"
                   "::ndk::AParcel_writeParcelable(_aidl_in.get(), in_parcel)" text "${text}")
    string(REPLACE "(&in_parcel)->readFromParcel(_aidl_in)"
                   "::ndk::AParcel_readParcelable(_aidl_in, &in_parcel)" text "${text}")
    file(WRITE ${dir}/${name}.cpp "${text}")
endforeach()
