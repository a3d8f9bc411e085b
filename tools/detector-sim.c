/* Simulated detector: prints DETECTOR_SIM_OUTPUT (default "1\n") in one write.
 * DETECTOR_SIM_DELAY_MS waits first; DETECTOR_SIM_HANG=1 never ends. */
#include "simcommon.h"

int main(int argc, char **argv)
{
    record_call(getenv("DETECTOR_SIM_RECORD"), argc, argv);
    sleep_ms(env_long("DETECTOR_SIM_DELAY_MS", 0));
    const char *output = env_str("DETECTOR_SIM_OUTPUT", "1\n");
    write_all(output, strlen(output));
    if (env_long("DETECTOR_SIM_HANG", 0))
        hang_forever();
    return 0;
}
