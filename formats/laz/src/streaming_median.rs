// SPDX-License-Identifier: Apache-2.0
//! A cheap running median, as LASzip predicts steps of coordinates by it.

/// The median of the last five differences, kept up by turns from above and below.
#[derive(Clone, Copy)]
pub struct StreamingMedian {
    values: [i32; 5],
    is_high: bool,
}

impl StreamingMedian {
    pub fn new() -> Self {
        Self { values: [0; 5], is_high: true }
    }

    pub fn get(&self) -> i32 {
        self.values[2]
    }

    pub fn add(&mut self, value: i32) {
        let v = &mut self.values;
        if self.is_high {
            if value < v[2] {
                v[4] = v[3];
                v[3] = v[2];
                if value < v[0] {
                    v[2] = v[1];
                    v[1] = v[0];
                    v[0] = value;
                } else if value < v[1] {
                    v[2] = v[1];
                    v[1] = value;
                } else {
                    v[2] = value;
                }
            } else {
                if value < v[3] {
                    v[4] = v[3];
                    v[3] = value;
                } else {
                    v[4] = value;
                }
                self.is_high = false;
            }
        } else if v[2] < value {
            v[0] = v[1];
            v[1] = v[2];
            if v[4] < value {
                v[2] = v[3];
                v[3] = v[4];
                v[4] = value;
            } else if v[3] < value {
                v[2] = v[3];
                v[3] = value;
            } else {
                v[2] = value;
            }
        } else {
            if v[1] < value {
                v[0] = v[1];
                v[1] = value;
            } else {
                v[0] = value;
            }
            self.is_high = true;
        }
    }
}
