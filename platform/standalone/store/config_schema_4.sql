-- Fourth schema of the configuration database: a place in the queue remembers why its task was
-- started (run_record.h has the numbers). Of the places that there are already nobody knows it;
-- they count as started by hand.
ALTER TABLE queue ADD COLUMN cause INTEGER NOT NULL DEFAULT 1;
